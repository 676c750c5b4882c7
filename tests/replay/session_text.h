// Sessions for tests, from lines as a session file has them, and differences as lines.
#pragma once

#include "compare/comparison.h"
#include "compare/recording.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/** Events of which each is a line "AT_MS WHAT", WHAT as in:
 *
 *     connected 1 | closed 1 app | operator ANSWER WORD... | broadcast TEXT
 *     1 > 7 252 {"channel":11} | 1 < 7 252 0 TEXT
 *
 * with number, type and, from the gateway, ret before the text; `<*` is under the built-in key. */
replay::recording session_of(std::initializer_list<std::string_view> lines);

/** Each as "KIND AT_MS SUBJECT". */
std::vector<std::string> lines_of(const std::vector<replay::difference> &found);

/** What apps and operator do and get, one a line as above, without times. */
std::vector<std::string> lines_of(const replay::recording &of);
