/* What the runner does for the rest of the kit. */
#pragma once

/** Tells the promise under check as broken, and that the run ends here; does not return. */
void run_give_up(const char *reason);
