// The report as documents: one description of its content, written as Markdown or as HTML.
#include "base/counted.h"
#include "base/escape.h"
#include "base/json_text.h"
#include "plan/report.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
using row = std::vector<std::string>;

constexpr std::size_t max_page_cell_columns = 500;

// What a document is made of.
class page {
  public:
    virtual ~page() = default;
    virtual void heading(std::size_t level, const std::string &text) = 0;
    virtual void paragraph(const std::string &text) = 0;
    virtual void table(const row &header, const std::vector<row> &rows) = 0;
    virtual void sign_off() = 0;
};

std::string escaped_text(const std::string &text, std::string_view special,
                         const std::function<std::string(char)> &escape) {
    std::string escaped;
    for (const char one : escape_for_terminal(text, max_page_cell_columns)) {
        escaped += special.find(one) == std::string_view::npos ? std::string(1, one) : escape(one);
    }
    return escaped;
}

class markdown_page : public page {
  public:
    void heading(std::size_t level, const std::string &text) override {
        text_ += fmt::format("{}{} {}\n\n", text_.empty() ? "" : "\n", std::string(level, '#'),
                             escaped(text));
    }
    void paragraph(const std::string &text) override { text_ += escaped(text) + "\n\n"; }
    void table(const row &header, const std::vector<row> &rows) override {
        add_row(header);
        add_row(row(header.size(), "---"));
        std::ranges::for_each(rows, [this](const row &one) { add_row(one); });
    }
    void sign_off() override {
        text_ += "\n## Accepted\n\n| Date | Name | Signature |\n| --- | --- | --- |\n| | | |\n";
    }
    std::string text() {
        text_.pop_back();
        return std::move(text_);
    }

  private:
    static std::string escaped(const std::string &text) {
        return escaped_text(text, "\\`*_[]<>|#~", [](char one) { return std::string{'\\', one}; });
    }
    void add_row(const row &cells) {
        for (const std::string &cell : cells) {
            text_ += "| " + (cell == "---" ? cell : escaped(cell)) + " ";
        }
        text_ += "|\n";
    }

    std::string text_;
};

// For a screen, and for the paper that is signed.
constexpr std::string_view html_style = R"(
body { font: 14px/1.4 sans-serif; margin: 2em auto; max-width: 60em; padding: 0 1em; }
h2 { margin-top: 2em; }
table { border-collapse: collapse; width: 100%; margin: 0.5em 0 1.5em; }
th, td { border: 1px solid #999; padding: 0.25em 0.5em; text-align: left; vertical-align: top; }
td { overflow-wrap: anywhere; }
th { background: #eee; }
.failed { background: #fdd; font-weight: bold; }
.offline { background: #fec; }
.sign td { height: 4em; width: 33%; }
h1, h2, h3, p { break-after: avoid; }
tr, .sign { break-inside: avoid; }
@page { size: A4; margin: 15mm; }
@page { @bottom-right { content: counter(page) " / " counter(pages); font: 9px sans-serif; } }
@media print {
  body { font-size: 11px; margin: 0; max-width: none; padding: 0 1px; }
  th, td { print-color-adjust: exact; }
}
)";

class html_page : public page {
  public:
    explicit html_page(const std::string &title)
        : text_(fmt::format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n"
                            "<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
                            "content=\"width=device-width\">\n<title>{}</title>\n"
                            "<style>{}</style>\n</head>\n<body>\n",
                            escaped(title), html_style)) {}

    void heading(std::size_t level, const std::string &text) override {
        text_ += fmt::format("<h{0}>{1}</h{0}>\n", level, escaped(text));
    }
    void paragraph(const std::string &text) override {
        text_ += fmt::format("<p>{}</p>\n", escaped(text));
    }
    void table(const row &header, const std::vector<row> &rows) override {
        text_ += "<table>\n<thead>\n"; // which is repeated on each sheet
        add_row("th", header);
        text_ += "</thead>\n<tbody>\n";
        std::ranges::for_each(rows, [this](const row &one) { add_row("td", one); });
        text_ += "</tbody>\n</table>\n";
    }
    void sign_off() override {
        text_ += "<h2>Accepted</h2>\n<table class=\"sign\">\n<tr><th>Date</th><th>Name</th>"
                 "<th>Signature</th></tr>\n<tr><td></td><td></td><td></td></tr>\n</table>\n";
    }
    std::string text() { return text_ + "</body>\n</html>"; }

  private:
    static std::string escaped(const std::string &text) {
        return escaped_text(text, "&<>\"'",
                            [](char one) { return fmt::format("&#{};", static_cast<int>(one)); });
    }
    void add_row(const char *tag, const row &cells) {
        text_ += "<tr>";
        for (const std::string &cell : cells) {
            const char *mark = cell == state_words("failed") || cell == "missing"
                                   ? " class=\"failed\""
                               : cell == "offline" ? " class=\"offline\""
                                                   : "";
            text_ += fmt::format("<{0}{1}>{2}</{0}>", tag, mark, escaped(cell));
        }
        text_ += "</tr>\n";
    }

    std::string text_;
};

// "2026-11-25 19:35 UTC" of "2026-11-25T19:35:27.034Z".
std::string minute_text(const std::string &time) {
    constexpr std::size_t date_length = 10;
    constexpr std::size_t minute_length = 16;
    return time.size() < minute_length
               ? time
               : time.substr(0, date_length) + " " +
                     time.substr(date_length + 1, minute_length - date_length - 1) + " UTC";
}

std::string summary_word(const json &gateway) {
    return gateway["as_planned"] == true ? "as planned" : state_words("failed");
}

void write_summary(page &to, const json &report) {
    const json &gateways = report["gateways"];
    const auto good =
        std::ranges::count_if(gateways, [](const json &one) { return one["as_planned"] == true; });
    to.paragraph(fmt::format(
        "{} on {}. As planned: {} of {}.", report["applied"] == true ? "Applied" : "Looked at",
        minute_text(member_text(report, "time")), good, counted(gateways.size(), "gateway")));
    std::vector<row> rows;
    for (const json &one : gateways) {
        rows.push_back({member_text(one, "gateway"), member_text(one, "id"),
                        member_text(one, "address"), summary_word(one)});
    }
    to.table({"Gateway", "Id", "Address", "Outcome"}, rows);
}

void write_devices(page &to, const json &gateway) {
    std::vector<row> rows;
    for (const json &one : gateway["devices"]) {
        rows.push_back({member_text(one, "room"), member_text(one, "name"), member_text(one, "cid"),
                        member_text(one, "pid"), member_text(one, "state")});
    }
    if (!rows.empty()) {
        to.heading(3, "Devices");
        to.table({"Room", "Name", "Id", "Product", "State"}, rows);
    }
}

void write_gateway(page &to, const json &gateway) {
    to.heading(2, member_text(gateway, "gateway"));
    if (gateway["error"].is_object()) {
        to.paragraph(member_text(gateway["error"], "message"));
    }
    for (const json &note : gateway["notes"]) {
        to.paragraph(note.get<std::string>());
    }
    std::vector<row> rows;
    for (const json &one : gateway["steps"]) {
        rows.push_back({member_text(one, "item"), state_words(member_text(one, "state")),
                        member_text(one, "words"), check_words(member_text(one, "check"))});
    }
    if (!rows.empty()) {
        to.table({"Item", "State", "What", "How it is known"}, rows);
    }
    write_devices(to, gateway);
}

template <typename Page>
std::string written_report(Page to, const json &report) {
    to.heading(1, "Site " + member_text(report, "plan"));
    write_summary(to, report);
    for (const json &one : report["gateways"]) {
        write_gateway(to, one);
    }
    to.sign_off();
    return to.text();
}

} // namespace

std::string plan_report_markdown(const json &report) {
    return written_report(markdown_page(), report);
}

std::string plan_report_html(const json &report) {
    return written_report(html_page("Site " + member_text(report, "plan")), report);
}

} // namespace engr_app
