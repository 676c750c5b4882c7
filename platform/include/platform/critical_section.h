/*
 * The critical section: one lock for the whole process, for a few instructions at a time.
 *
 * It exists before anything was created and never fails, so that it may guard the very state that
 * says what was created. Not recursive. Its holder calls nothing that waits; contract calls marked
 * "does not block" are allowed.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Waits until the critical section is free and enters it. Waiting takes no processor time at
 * whatever priority, and a stop of the thread does not end it. REQUIRED of a port with priorities:
 * the holder runs at least at the priority of the highest thread that waits.
 *
 * Any thread that does not hold the critical section, but no interrupt handler.
 */
void kelo_hal_critical_section_enter(void);

/** Leaves the critical section. Called by the thread that entered it; does not block. */
void kelo_hal_critical_section_leave(void);

#ifdef __cplusplus
}
#endif
