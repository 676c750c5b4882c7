// Output for people and for scripts.
#include "terminal/console.h"

#include "base/escape.h"
#include "base/failure.h"
#include "base/json_text.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

constexpr std::size_t column_gap = 2;
// No text of a gateway in a table, a line or a sentence needs more.
constexpr std::size_t max_cell_columns = 300;
constexpr std::size_t max_line_columns = 2000;

std::string padded(std::string text, std::size_t columns) {
    const std::size_t used = text_columns(text);
    text.append(columns > used ? columns - used : 0, ' ');
    return text;
}

// By the conventions of NO_COLOR and TERM.
bool wants_colour() {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           *terminal != '\0' && std::string_view(terminal) != "dumb";
}

} // namespace

console::console(screen &shown_on, bool json, bool quiet_notices)
    : screen_(shown_on), json_(json), quiet_(quiet_notices),
      colour_(shown_on.output_is_terminal() && wants_colour()) {}

console::console(screen &shown_on, bool json, bool quiet_notices, std::string gateway_name)
    : console(shown_on, json, quiet_notices) {
    gateway_name_ = std::move(gateway_name);
    prefix_ = gateway_name_ + ": ";
}

// A sentence that begins with the gateway needs no name before it.
std::string console::named(std::string_view sentence) const {
    const std::string beginning = "gateway " + gateway_name_ + " ";
    const bool names_it = !gateway_name_.empty() && sentence.starts_with(beginning);
    return (names_it ? "" : prefix_) + std::string(sentence);
}

void console::table(const row &header, const std::vector<row> &rows, const table_view &view) {
    if (!gateway_name_.empty()) {
        kept_.tables.push_back({header, rows, view});
        return;
    }
    const engr_app::table shown = apply(view, {header, rows});
    screen_.output(screen_.output_is_terminal() && !view.csv
                       ? table_for_terminal(shown, view, screen_.columns(), colour_)
                       : table_text(shown, view));
}

void console::facts(const std::vector<std::pair<std::string, std::string>> &named) {
    if (!gateway_name_.empty()) {
        kept_results::table kept{{"FACT", "VALUE"}, {}};
        for (const auto &[name, value] : named) {
            kept.rows.push_back({name, value});
        }
        kept_.tables.push_back(std::move(kept));
        return;
    }
    std::size_t widest = 0;
    for (const auto &[name, value] : named) {
        widest = std::max(widest, name.size());
    }
    std::string shown;
    for (const auto &[name, value] : named) {
        shown += padded(name + ":", widest + 1 + column_gap) +
                 escape_for_terminal(value, max_cell_columns) + '\n';
    }
    screen_.output(shown);
}

void console::line(std::string_view text) {
    screen_.output(escape_for_terminal(named(text), max_line_columns) + '\n');
}

void console::text(std::string_view text) {
    if (!gateway_name_.empty()) {
        kept_.texts.emplace_back(text);
        return;
    }
    if (!screen_.output_is_terminal()) {
        return screen_.output(std::string(text) + '\n');
    }
    // Line ends are kept; the rest is escaped.
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        line(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void console::document(const nlohmann::json &value) {
    document_written_ = true;
    if (!gateway_name_.empty()) {
        kept_.document = std::make_shared<nlohmann::json>(value);
        return;
    }
    screen_.output(many_lines(value) + '\n');
}

void console::written_document(const std::string &text) {
    if (!gateway_name_.empty()) {
        return document(nlohmann::json::parse(text));
    }
    document_written_ = true;
    screen_.output(text + '\n');
}

void console::json_line(const nlohmann::json &value) {
    kept_.streamed = true;
    if (gateway_name_.empty()) {
        return screen_.output(one_line(value) + '\n');
    }
    nlohmann::json named = value;
    named["gateway"] = gateway_name_;
    screen_.output(one_line(named) + '\n');
}

void console::message(std::string_view sentence, std::size_t max_columns) {
    screen_.message(escape_for_terminal(named(sentence), max_columns) + '\n');
}

void console::progress(std::string_view sentence) {
    if (screen_.messages_are_terminal() && !quiet_ && !screen_.is_quiet()) {
        message(sentence, max_line_columns);
    }
}

progress_bar console::bar(std::string_view label, uint64_t total, std::string_view unit) {
    if (json_ || quiet_ || screen_.is_quiet()) {
        return {};
    }
    return {screen_,
            {.label = prefix_ + std::string(label), .unit = std::string(unit), .total = total}};
}

void console::notice(std::string_view sentence) {
    if (screen_.is_quiet()) {
        return;
    }
    message(sentence, max_line_columns);
}

// Its line ends are kept; the rest is escaped.
void console::question(std::string_view text) {
    std::string safe;
    for (;;) {
        const std::size_t end = text.find('\n');
        safe += escape_for_terminal(text.substr(0, end), max_line_columns);
        if (end == std::string_view::npos) {
            break;
        }
        safe += '\n';
        text.remove_prefix(end + 1);
    }
    screen_.message(safe);
}

void console::trace(std::string_view text) {
    message(text, max_cell_columns);
}

void console::problem(const std::string &kind, std::string_view sentence) {
    const nlohmann::json kept{{"kind", kind}, {"message", sentence}};
    const nlohmann::json whole{{"error", kept}};
    bool told = false;
    if (!gateway_name_.empty()) {
        kept_.error = std::make_shared<nlohmann::json>(kept);
        told = json_ && !kept_.document; // in the array of all gateways
    } else if (json_ && !document_written_) {
        document_written_ = true;
        try {
            screen_.output((kept_.streamed ? one_line(whole) : many_lines(whole)) + '\n');
            told = true;
        } catch (const failure &) {
            told = false; // the message below says it all the same
        }
    }
    // Who reads the document need not read it twice, but a person may look on.
    if (!told || (screen_.messages_are_terminal() && !screen_.output_is_terminal())) {
        screen_.message("engr_app: " + escape_for_terminal(named(sentence), max_line_columns) +
                        '\n');
    }
}

} // namespace engr_app
