// Output of verbs: results for people and for scripts, messages, progress.
#pragma once

#include "terminal/growing_table.h"
#include "terminal/progress_bar.h"
#include "terminal/screen.h"
#include "terminal/table.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/** Results that the console of one gateway among several keeps until all are done. */
struct kept_results {
    using row = table_row;
    struct table {
        row header;
        std::vector<row> rows;
        table_view view = {};
    };
    std::vector<table> tables;
    std::vector<std::string> texts;
    std::shared_ptr<const nlohmann::json> document; /**< absent: none was written */
    std::shared_ptr<const nlohmann::json> error;    /**< {"kind", "message"}, or absent */
    bool streamed = false;                          /**< JSON lines were written */
};

/**
 * Results go to standard output, everything else to standard error. Text for people is escaped
 * here, so that callers may pass on what a gateway sent. A console is used by one thread; several
 * consoles may share a screen.
 */
class console {
  public:
    using row = kept_results::row;

    console(screen &shown_on, bool json, bool quiet_notices);

    /**
     * The console of one gateway among several: sentences and lines begin with its name; tables,
     * facts, texts, the document and the problem are kept.
     */
    console(screen &shown_on, bool json, bool quiet_notices, std::string gateway_name);

    /**
     * The same for a gateway of a run that began with the console `whole`.
     *
     * @param quiet  show neither bars nor messages about progress
     */
    console(const console &whole, std::string gateway_name, bool quiet)
        : console(whole.screen_, whole.json_, whole.quiet_ || quiet, std::move(gateway_name)) {}

    /** Whether results are written as JSON: exactly one document, or one line a report. */
    [[nodiscard]] bool json() const { return json_; }

    /** Whether a person sees both results and messages as they come. */
    [[nodiscard]] bool is_on_terminal() const {
        return screen_.output_is_terminal() && screen_.messages_are_terminal();
    }

    /**
     * Rows under a header: aligned and cut to the width on a terminal, else separated by tabs or as
     * the view says. Throws a failure of wrong usage when the view names a column that the table
     * doesn't have.
     */
    void table(const row &header, const std::vector<row> &rows, const table_view &view = {});

    /** A table that shows each row when it is added; not for one of several gateways. */
    [[nodiscard]] growing_table grow_table(std::vector<growing_table::column> columns) {
        return {screen_, colour_, std::move(columns)};
    }

    /** Facts, one a line: "name: value". */
    void facts(const std::vector<std::pair<std::string, std::string>> &named);

    /** One line of a result. */
    void line(std::string_view text);

    /** Text of a result, unchanged; escaped only for a terminal. */
    void text(std::string_view text);

    /** The one JSON document of a run. */
    void document(const nlohmann::json &value);

    /** The same for one that has been written already, in many lines. */
    void written_document(const std::string &text);

    /** One JSON line of many; an object. */
    void json_line(const nlohmann::json &value);

    /** A message about progress; shown only when standard error is a terminal. */
    void progress(std::string_view sentence);

    /**
     * A progress bar, which must not outlive the screen. With --json or -v it shows nothing.
     *
     * @param label  what is transferred, without the gateway's name
     * @param total  0: not known yet
     * @param unit  such as "devices"; empty: bytes
     */
    [[nodiscard]] progress_bar bar(std::string_view label, uint64_t total = 0,
                                   std::string_view unit = {});

    /** A message that is shown unless the user wants quiet. */
    void notice(std::string_view sentence);

    /** A question to the user, without the gateway's name; always shown. The answer is typed behind
     * it. */
    void question(std::string_view text);

    /** One line of the trace that -v asks for. */
    void trace(std::string_view text);

    /**
     * Why the work failed. With --json this is the document, unless one was written before, or the
     * last of the lines; the message is then for a terminal only.
     */
    void problem(const std::string &kind, std::string_view sentence);

    /** Empty unless this is the console of one of several gateways. */
    [[nodiscard]] const kept_results &kept() const { return kept_; }

  private:
    [[nodiscard]] std::string named(std::string_view sentence) const;
    void message(std::string_view sentence, std::size_t max_columns);

    screen &screen_;
    bool json_;
    bool quiet_;
    std::string gateway_name_; // empty: the only one
    std::string prefix_;
    bool document_written_ = false;
    bool colour_;
    kept_results kept_;
};

} // namespace engr_app
