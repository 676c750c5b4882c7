/* What a log line must not show: secrets of a request, and what a terminal would obey. */
#include "internal.h"

#include <ctype.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

/** Length of the JSON string at the text, which begins with a quote; to its end when unclosed. */
static size_t string_length(const char *text) {
    size_t at = 1;
    while (text[at] != '\0' && text[at] != '"') {
        at += text[at] == '\\' && text[at + 1] != '\0' ? 2 : 1;
    }
    return text[at] == '"' ? at + 1 : at;
}

/** Whether a string of that length names a secret, in any letter case and with escapes. */
static int names_secret(const char *text, size_t length) {
    static const char *const names[] = {"passwd", "token", "local_key"};
    char name[16];
    size_t count = 0;
    for (size_t at = 1; at + 1 < length && count < sizeof name - 1; ++at) {
        if (text[at] == '\\' && text[at + 1] == 'u' && at + 5 < length) {
            const char code[5] = {text[at + 2], text[at + 3], text[at + 4], text[at + 5], '\0'};
            name[count++] = (char)strtoul(code, NULL, 16);
            at += 5;
        } else {
            name[count++] = text[at];
        }
    }
    name[count] = '\0';
    for (size_t i = 0; i < sizeof names / sizeof names[0]; ++i) {
        if (strcasecmp(name, names[i]) == 0) {
            return 1;
        }
    }
    return 0;
}

/** Length of the JSON value at the text, blanks before it included; to its end when unclosed. */
static size_t value_length(const char *text) {
    size_t at = strspn(text, " \t\r\n");
    unsigned depth = 0;
    do {
        if (text[at] == '"') {
            at += string_length(text + at);
        } else if (text[at] == '{' || text[at] == '[') {
            ++depth;
            ++at;
        } else if (depth == 0) {
            return at + strcspn(text + at, ",}]");
        } else {
            depth -= text[at] == '}' || text[at] == ']' ? 1 : 0;
            ++at;
        }
    } while (depth != 0 && text[at] != '\0');
    return at;
}

unsigned long port_hide_secrets(const char *message, char *shown, unsigned long size) {
    size_t used = 0;
    while (*message != '\0' && used + 1 < size) {
        const size_t length = *message == '"' ? string_length(message) : 0;
        const size_t colon = length != 0 ? length + strspn(message + length, " \t\r\n") : 0;
        if (length != 0 && message[colon] == ':' && names_secret(message, length)) {
            const int more = snprintf(shown + used, size - used, "%.*s:***", (int)length, message);
            used = used + (size_t)more < size ? used + (size_t)more : size - 1;
            message += colon + 1;
            message += value_length(message);
        } else {
            shown[used++] = *message++;
        }
    }
    shown[used] = '\0';
    return used;
}

unsigned long port_make_visible(const char *message, char *shown, unsigned long size) {
    size_t length = strlen(message);
    size_t used = 0;
    while (length != 0 && iscntrl((unsigned char)message[length - 1])) {
        --length;
    }
    for (size_t i = 0; i < length && used + 5 < size; ++i) {
        const unsigned char byte = (unsigned char)message[i];
        const int is_second_control =
            byte >= 0x80 && byte < 0xA0 && i != 0 && (unsigned char)message[i - 1] == 0xC2;
        if (byte < 0x20 || byte == 0x7F || is_second_control) {
            used += (size_t)snprintf(shown + used, size - used, "\\x%02x", byte);
        } else {
            shown[used++] = (char)byte;
        }
    }
    shown[used] = '\0';
    return used;
}
