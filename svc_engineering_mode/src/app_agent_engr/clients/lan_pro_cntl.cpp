/* The pointer to the controller record. */
#include "lan_pro_cntl.h"

std::atomic<lan_pro_cntl_t *> lan_pro_cntl{nullptr};
