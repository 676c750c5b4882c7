/* Discovery in WeChat mode, through the platform's AirKiss layer. */
#pragma once

/** One AirKiss step: informs the phone that configuration has finished, or sends a discovery
 * packet. Timer context only. */
void __airkiss_lan_discovery();
