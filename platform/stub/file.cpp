/*
 * Files of a new port.
 * Needs: a file system that holds two configuration files and the log. A board without one leaves
 * this file as it is: configuration and log commands then tell the app that they failed.
 */
#include "platform/file.h"

int32_t engr_file_open(const char *) {
    return -1;
}
int32_t engr_file_create(const char *) {
    return -1;
}
int32_t engr_file_read(int32_t, void *, uint32_t) {
    return -1;
}
int32_t engr_file_write(int32_t, const void *, uint32_t) {
    return -1;
}
void engr_file_close(int32_t) {}
int32_t engr_file_size(const char *, uint64_t *) {
    return -1;
}
int32_t engr_file_remove(const char *) {
    return -1;
}
const char *engr_file_error() {
    return "no files on this port";
}
