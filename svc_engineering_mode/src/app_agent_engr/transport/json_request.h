/* A request's payload as JSON: parsed as one text and nothing else, released on every path unless a
 * callee takes it over. */
#pragma once

#include <cjson/cJSON.h>
#include <utility>

/** Owns a parsed JSON text. */
class json_request {
  public:
    /** Parses; empty when the text is not JSON, has something behind it, or is nested deeper than
     * requests ever are. */
    explicit json_request(const char *text);
    json_request(const json_request &) = delete;
    json_request &operator=(const json_request &) = delete;
    ~json_request() { cJSON_Delete(root_); }

    explicit operator bool() const { return root_ != nullptr; }
    [[nodiscard]] cJSON *root() const { return root_; }
    /** Hands the parsed text to whoever took it over. */
    void release() { root_ = nullptr; }

  private:
    cJSON *root_;
};
