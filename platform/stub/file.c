/*
 * Files of a new port.
 * Needs: a file system that holds two configuration files and the log. A board without one leaves
 * this file as it is: configuration and log commands then tell the app that they failed.
 */
#include "platform/file.h"

int32_t engr_file_open(const char *path) {
    (void)path;
    return -1;
}
int32_t engr_file_create(const char *path) {
    (void)path;
    return -1;
}
int32_t engr_file_read(int32_t file, void *buffer, uint32_t size) {
    (void)file;
    (void)buffer;
    (void)size;
    return -1;
}
int32_t engr_file_write(int32_t file, const void *data, uint32_t size) {
    (void)file;
    (void)data;
    (void)size;
    return -1;
}
void engr_file_close(int32_t file) {
    (void)file;
}
int32_t engr_file_size(const char *path, uint64_t *size) {
    (void)path;
    (void)size;
    return -1;
}
int32_t engr_file_remove(const char *path) {
    (void)path;
    return -1;
}
const char *engr_file_error(void) {
    return "no files on this port";
}
