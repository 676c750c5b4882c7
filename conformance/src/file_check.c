/* Promises of the files. */
#include "kit.h"

#include "platform/file.h"

#include <stdio.h>

/** Whether the port has files; skips the promise otherwise. */
static bool has_files(void) {
    if (kit->file_path == NULL) {
        kit_skip("the harness has no file_path");
        return false;
    }
    return true;
}

/** Makes the kit's file with these contents. */
static void write_file(const char *bytes, uint32_t length) {
    const int32_t file = engr_file_create(kit->file_path);
    if (EXPECT(file >= 0, "expected a file to be made at %s, not: %s", kit->file_path,
               engr_file_error())) {
        EXPECT(engr_file_write(file, bytes, length) == (int32_t)length,
               "expected %u bytes to be written", (unsigned)length);
        engr_file_close(file);
    }
}

static void expect_size(uint64_t wanted) {
    uint64_t bytes = 0;
    EXPECT(engr_file_size(kit->file_path, &bytes) == 0, "expected the size of a closed file");
    EXPECT(bytes == wanted, "expected a size of %u bytes, got %u", (unsigned)wanted,
           (unsigned)bytes);
}

void file_what_is_written_is_read_back(void) {
    if (!has_files()) {
        return;
    }
    const uint32_t length = (uint32_t)kit_frame_bytes();
    const uint32_t part = length / 3;
    char *written = kit_frame(0, 'w');
    char *got = kit_frame(1, '-');
    memcpy(written + part, "a\0b\n\r\xFF", 6);
    int32_t file = engr_file_create(kit->file_path);
    EXPECT(file >= 0, "expected a file to be made");
    EXPECT(engr_file_write(file, written, 0) == 0, "expected 0 bytes to be written");
    EXPECT(engr_file_write(file, written, part) == (int32_t)part, "expected all bytes to be taken");
    EXPECT(engr_file_write(file, written + part, length - part) == (int32_t)(length - part),
           "expected all bytes to be taken");
    engr_file_close(file);
    expect_size(length);

    file = engr_file_open(kit->file_path);
    EXPECT(file >= 0, "expected the file to be opened");
    EXPECT(engr_file_read(file, got, part + 1) == (int32_t)part + 1, "expected all bytes wanted");
    EXPECT(engr_file_read(file, got + part + 1, length) == (int32_t)(length - part - 1),
           "expected a read to go on where the last one ended, and to stop at the end");
    EXPECT(engr_file_read(file, got, 1) == 0, "expected 0 bytes at the end of the file");
    engr_file_close(file);
    EXPECT(memcmp(written, got, length) == 0, "expected the bytes that were written");
    EXPECT(engr_file_remove(kit->file_path) == 0, "expected the file to be removed");
}

void file_a_create_empties(void) {
    if (!has_files()) {
        return;
    }
    write_file("0123456789", 10);
    expect_size(10);
    write_file("abc", 3);
    expect_size(3);
    write_file("", 0);
    expect_size(0);
    EXPECT(engr_file_remove(kit->file_path) == 0, "expected the file to be removed");
}

void file_what_is_not_there_fails(void) {
    if (!has_files()) {
        return;
    }
    uint64_t bytes = 7;
    write_file("abc", 3);
    EXPECT(engr_file_remove(kit->file_path) == 0, "expected the file to be removed");
    EXPECT(engr_file_open(kit->file_path) == -1, "expected a removed file not to be opened");
    EXPECT(engr_file_error() != NULL && engr_file_error()[0] != '\0', "expected a reason");
    EXPECT(engr_file_size(kit->file_path, &bytes) == -1, "expected no size of a removed file");
    EXPECT(bytes == 7, "expected a failure to leave the size");
    EXPECT(engr_file_remove(kit->file_path) == -1, "expected a second removal to fail");
    if (kit->barred_path != NULL) {
        EXPECT(engr_file_create(kit->barred_path) == -1, "expected no file to be made at %s",
               kit->barred_path);
        EXPECT(engr_file_error() != NULL && engr_file_error()[0] != '\0', "expected a reason");
    }
}

void file_full_storage_shows(void) {
    if (kit->full_path == NULL) {
        kit_skip("the harness has no full_path");
        return;
    }
    const int32_t file = engr_file_create(kit->full_path);
    EXPECT(file >= 0, "expected %s to be opened", kit->full_path);
    const uint32_t length = (uint32_t)kit_frame_bytes();
    EXPECT(engr_file_write(file, kit_frame(0, 'w'), length) < (int32_t)length,
           "expected fewer bytes than wanted, or -1, when nothing more fits");
    EXPECT(engr_file_error() != NULL, "expected a reason, not null");
    engr_file_close(file);
}

void file_handles_are_given_back(void) {
    if (!has_files()) {
        return;
    }
    write_file("abc", 3);
    for (uint32_t i = 0; i < kit->ids; ++i) {
        const int32_t file = engr_file_open(kit->file_path);
        if (!EXPECT(file >= 0, "expected file %u to be opened, not: %s", (unsigned)i,
                    engr_file_error())) {
            break;
        }
        engr_file_close(file);
    }
    EXPECT(engr_file_remove(kit->file_path) == 0, "expected the file to be removed");
}

void file_a_new_one_has_permissions(void) {
    enum { OWNER_ALL_OTHERS_READ = 0755 };
    if (kit->permissions == NULL) {
        kit_skip("the harness has no permissions");
        return;
    }
    write_file("abc", 3);
    EXPECT(kit->permissions(kit->file_path) == OWNER_ALL_OTHERS_READ,
           "expected permissions 0755, got %03o", (unsigned)kit->permissions(kit->file_path));
    EXPECT(engr_file_remove(kit->file_path) == 0, "expected the file to be removed");
}

static void fail_in_another_way(void *unused) {
    (void)unused;
    EXPECT(engr_file_create(kit->barred_path) == -1, "expected no file to be made at %s",
           kit->barred_path);
}

void file_the_reason_is_the_calling_threads(void) {
    kit_thread_t thread;
    char before[100];
    if (kit->barred_path == NULL) {
        kit_skip("the harness has no barred_path");
        return;
    }
    EXPECT(engr_file_open(kit->file_path) == -1, "expected a removed file not to be opened");
    snprintf(before, sizeof before, "%s", engr_file_error());
    kit_start(&thread, fail_in_another_way, NULL);
    kit_join(&thread);
    EXPECT(strncmp(engr_file_error(), before, sizeof before - 1) == 0,
           "expected a failure on another thread to leave the reason, '%s', not '%s'", before,
           engr_file_error());
}
