/*
 * Files: the agent writes the configuration that an app sends, and reads and removes the log that
 * an app downloads. Called on the agent's server task, one file at a time; a call may block for as
 * long as the storage takes.
 *
 * Paths are NUL-terminated, at most 160 bytes long, and come from the gateway's services. A board
 * without storage may let every call fail: the app is then told that the command failed.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens a file for reading.
 *
 * @return a handle of 0 or more, to be closed with engr_file_close; -1 the file can't be opened
 */
int32_t engr_file_open(const char *path);

/**
 * Opens a file for writing. A new one is created, with permissions 0755 where there are
 * permissions, less what the process withholds from new files; an existing one is emptied.
 *
 * @return a handle of 0 or more, to be closed with engr_file_close; -1 the file can't be opened
 */
int32_t engr_file_create(const char *path);

/**
 * Reads on from where the last read ended.
 *
 * @param file         handle from engr_file_open
 * @param[out] buffer  room for length bytes
 * @param length       bytes wanted, at most 2^31 - 1
 * @return bytes read, fewer than wanted at the end of the file; -1 the read failed. The agent takes
 *     fewer bytes than wanted for a failure
 */
int32_t engr_file_read(int32_t file, void *buffer, uint32_t length);

/**
 * Writes behind what was written before.
 *
 * @param file    handle from engr_file_create
 * @param bytes   length bytes
 * @param length  at most 2^31 - 1; 0 writes nothing and succeeds
 * @return bytes written; fewer when the storage is full, or -1 when it has no room at all; -1 also
 *     for any other failure. The agent takes fewer bytes than wanted for a failure, and leaves the
 *     file as it is
 */
int32_t engr_file_write(int32_t file, const void *bytes, uint32_t length);

/**
 * Closes a file.
 *
 * @param file  handle from engr_file_open or engr_file_create; it may be handed out again
 */
void engr_file_close(int32_t file);

/**
 * Gets the size of a file without opening it.
 *
 * @param[out] bytes  its size on success, else unchanged
 * @return 0; -1 there is no such file, or it can't be examined
 */
int32_t engr_file_size(const char *path, uint64_t *bytes);

/**
 * Removes a file.
 *
 * @return 0; -1 it was not removed. The agent does not look at the result
 */
int32_t engr_file_remove(const char *path);

/**
 * Describes the last failure of a call above on the calling thread, for a log line.
 *
 * @return a text such as "No such file or directory", valid until the thread's next call of this
 *     header; never null. After a call that succeeded it may be any text
 */
const char *engr_file_error(void);

#ifdef __cplusplus
}
#endif
