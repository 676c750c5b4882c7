/* Reports of the upgrade's progress. */
#pragma once

#include <cstdint>

/** Pushes how much of an image the upgrade service has taken, as 0 to 98 percent. Any thread.
 * @param done, total  bytes */
void __rpt_upload_upgrade_percent(const char *cid, uint32_t done, uint32_t total);
