/* A request's payload as JSON: parsed as one text and nothing else, released on every path unless a
 * callee takes it over. */
#pragma once

#include <cjson/cJSON.h>

/** Owns a parsed JSON text. */
class json_request {
  public:
    /** Parses; empty when the text is null or not JSON, has something behind it, or is nested
     * deeper or has more values than requests ever do. */
    explicit json_request(const char *text);
    json_request(const json_request &) = delete;
    json_request &operator=(const json_request &) = delete;
    ~json_request() { cJSON_Delete(root_); }

    explicit operator bool() const { return root_ != nullptr; }
    [[nodiscard]] cJSON *root() const { return root_; }
    /** The first member of that name, in whatever letter case and of whatever type; null when
     * missing. */
    [[nodiscard]] cJSON *member(const char *name) const { return cJSON_GetObjectItem(root_, name); }
    /** Value of a text member, living as long as the request; null when missing or of another type.
     */
    [[nodiscard]] const char *text(const char *name) const {
        return cJSON_GetStringValue(member(name));
    }
    /** Value of a number member, fractions dropped, limited to 32 bits; null when missing or of
     * another type. */
    [[nodiscard]] const int *number(const char *name) const {
        const cJSON *item = member(name);
        return cJSON_IsNumber(item) != 0 ? &item->valueint : nullptr;
    }
    /** Hands the parsed text to whoever took it over. */
    void release() { root_ = nullptr; }

  private:
    cJSON *root_;
};
