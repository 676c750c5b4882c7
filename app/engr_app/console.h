// The one place that knows about terminals, widths and colours.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/// Results go to standard output, all else to standard error. Everything that is shown to people
/// is made safe here, so that callers may pass on what a gateway said.
class console {
  public:
    using row = std::vector<std::string>;

    console(bool json, bool quiet_notices);

    /// Results are asked for as JSON: exactly one document, or one line per report.
    [[nodiscard]] bool json() const { return json_; }

    /// Rows under a header: aligned and cut to the width on a terminal, else separated by tabs.
    void table(const row &header, const std::vector<row> &rows);

    /// Facts, one a line: "name: value".
    void facts(const std::vector<std::pair<std::string, std::string>> &named);

    /// One line of a result.
    void line(std::string_view text);

    /// Text of a result as it is, only made safe when it goes to a terminal.
    void text(std::string_view text);

    /// The one JSON document of a run.
    void document(const nlohmann::json &value);

    /// One JSON line of many.
    void json_line(const nlohmann::json &value);

    /// What goes on, for people; only shown when standard error is a terminal.
    void progress(std::string_view sentence);

    /// Something that people should know; always shown.
    void notice(std::string_view sentence);

    /// One line of the trace that -v asks for.
    void trace(std::string_view text);

    /// Why the work failed; with --json it becomes the document unless there was one.
    void problem(const std::string &kind, std::string_view sentence);

  private:
    void check_output();

    bool json_;
    bool document_written_ = false;
    bool output_is_terminal_;
    bool messages_on_terminal_;
    bool colour_;
    std::size_t columns_;
};

} // namespace engr_app
