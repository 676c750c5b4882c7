/* Promises of the log. */
#include "kit.h"

#include "platform/log.h"

#include <errno.h>
#include <stdio.h>

enum { LOG_SIZE = 16384 };

static void say(int line, const char *text) {
    PrintLog(LOG_MODULE_AGENT, LOG_LEVEL_FAILURE, "log_check.c", line, "say", "%s", text);
}

void log_a_line_changes_no_error_code(void) {
    EXPECT(kelo_hal_net_close(NO_SOCKET) < 0, "expected an unknown number to fail");
    errno = EDOM;
    PrintLog(LOG_MODULE_AGENT, LOG_LEVEL_FAILURE, "log_check.c", __LINE__, "check", "%s %d", "text",
             5);
    EXPECT(errno == EDOM, "expected PrintLog to leave errno");
    EXPECT(kelo_hal_net_get_errno() == KELO_ERR_BAD_SOCKET, "expected PrintLog to leave the code");
}

/** What was logged since the last call, in the kit's memory; null when the harness can't tell. */
static char *logged(void) {
    if (kit->take_log == NULL) {
        kit_skip("the harness has no take_log");
        return NULL;
    }
    const size_t size = kit->memory_bytes < LOG_SIZE ? kit->memory_bytes : LOG_SIZE;
    kit->take_log(kit->memory, size);
    return kit->memory;
}

static unsigned count_of(const char *text, const char *part) {
    unsigned count = 0;
    for (const char *at = strstr(text, part); at != NULL; at = strstr(at + 1, part)) {
        ++count;
    }
    return count;
}

void log_an_entry_is_one_visible_line(void) {
    if (logged() == NULL) {
        return;
    }
    say(__LINE__, "begin\n2026 0 forged:1 line\x1b[2J\x07 end\r\n");
    const char *text = logged();
    EXPECT(strstr(text, "begin") != NULL && strstr(text, " end\n") != NULL,
           "expected the message without its last line break");
    EXPECT(count_of(text, "\n") == 1, "expected an entry to be one line, not %u",
           count_of(text, "\n"));
    for (const char *at = text; *at != '\0'; ++at) {
        EXPECT((unsigned char)*at >= 0x20 || *at == '\n',
               "expected control characters to be made visible, found %02x", (unsigned)*at);
    }
}

void log_secrets_are_hidden(void) {
    static const char *const requests[] = {
        "{\"ssid\":\"home\",\"passwd\":\"S3CRET\",\"x\":1}",
        "{\"token\" : \"S3CRET\"}",
        "{\"local_key\":\"ab\\\"S3CRET\"}",
        "{\"Passwd\":{\"in\":[\"S3CRET\"]}}",
        "{\"passwd\":\"S3CRET",
    };
    if (logged() == NULL) {
        return;
    }
    for (size_t i = 0; i < sizeof requests / sizeof requests[0]; ++i) {
        say((int)(1000 + i), requests[i]);
        const char *text = logged();
        EXPECT(text[0] != '\0', "expected a line of level 0 to be kept");
        EXPECT(strstr(text, "S3CRET") == NULL, "expected no secret of %s in the log", requests[i]);
    }
}

typedef struct {
    kit_thread_t thread;
    char letter;
} writer_t;

enum { WRITERS = 3, WRITTEN = 10, WIDTH = 300 };

static void write_lines(void *argument) {
    writer_t *writer = argument;
    char text[WIDTH + 1];
    memset(text, writer->letter, WIDTH);
    text[WIDTH] = '\0';
    for (int i = 0; i < WRITTEN; ++i) {
        say(2000 + writer->letter, text);
    }
}

void log_lines_never_mix(void) {
    writer_t writers[WRITERS];
    int counts[WRITERS] = {0};
    if (logged() == NULL) {
        return;
    }
    for (int i = 0; i < WRITERS; ++i) {
        writers[i].letter = (char)('X' + i);
        kit_start(&writers[i].thread, write_lines, &writers[i]);
    }
    for (int i = 0; i < WRITERS; ++i) {
        kit_join(&writers[i].thread);
    }
    const char *at = logged();
    EXPECT(count_of(at, "\n") == WRITERS * WRITTEN, "expected %d lines, got %u", WRITERS * WRITTEN,
           count_of(at, "\n"));
    for (const char *end = strchr(at, '\n'); end != NULL; at = end + 1, end = strchr(at, '\n')) {
        bool is_whole = end - at >= WIDTH;
        for (int i = 1; is_whole && i <= WIDTH; ++i) {
            is_whole = end[-i] == end[-1];
        }
        EXPECT(is_whole, "expected each line to be of one thread");
        counts[(unsigned char)(end[-1] - 'X') % WRITERS] += 1;
    }
    for (int i = 0; i < WRITERS; ++i) {
        EXPECT(counts[i] == WRITTEN, "expected %d lines of each thread, got %d", WRITTEN,
               counts[i]);
    }
}

void log_one_place_cannot_fill_it(void) {
    enum { TIMES = 500, MUCH = 100 };
    if (logged() == NULL) {
        return;
    }
    for (int i = 0; i < TIMES; ++i) {
        say(3000, "again");
    }
    const unsigned kept = count_of(logged(), "again");
    EXPECT(kept != 0, "expected the first lines of a place to be kept");
    EXPECT(kept <= MUCH,
           "expected a place that writes %d lines at once to be limited, %u were kept", TIMES,
           kept);
    kelo_hal_system_sleep(1100);
    say(3001, "later");
    const char *text = logged();
    char count[16];
    snprintf(count, sizeof count, "%u", TIMES - kept);
    EXPECT(strstr(text, count) != NULL, "expected a line that tells of %s lines left out", count);
    EXPECT(strstr(text, "later") != NULL, "expected other lines to go on");
}
