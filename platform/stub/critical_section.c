/*
 * Critical section of a new port.
 * Needs: one lock that exists from the start: interrupts off on a single core without threads that
 * wait, else a statically created mutex with priority inheritance. There is no error to return:
 * until it is there, a program that enters is ended.
 */
#include "platform/critical_section.h"

#include <stdlib.h>

void kelo_hal_critical_section_enter(void) {
    abort();
}
void kelo_hal_critical_section_leave(void) {
    abort();
}
