// Reading of plans. YAML's plain scalars are true, false, null and decimal numbers as in JSON, and
// texts else: no "yes" and "on", no octal numbers.
#include "plan/document.h"

#include "base/failure.h"
#include "files/input_file.h"
#include "plan/schema.h"
#include "support/json_value.h"
#include "support/numbers.h"
#include "support/utf8.h"
#include "terminal/console.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::size_t max_plan_bytes = 4 * 1024 * 1024;
// Aliases stand for what they name, so that a short text can mean a huge one.
constexpr std::size_t max_plan_values = 1'000'000;
constexpr std::size_t max_plan_values_per_byte = 16;
constexpr std::size_t max_plan_depth = 64;
constexpr std::size_t max_member_name_bytes = 256;
constexpr std::size_t max_told_faults = 20;

failure bad_plan(const std::string &sentence) {
    return {"plan", sentence};
}

std::optional<double> plain_fraction(const std::string &text) {
    if (text.find_first_not_of("+-.0123456789eE") != std::string::npos) {
        return std::nullopt;
    }
    double number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

json plain_scalar(const std::string &text) {
    if (text == "true" || text == "false") {
        return text == "true";
    }
    if (text.empty() || text == "~" || text == "null") {
        return nullptr;
    }
    if (const auto number = support::whole_number<int64_t>(text)) {
        return *number;
    }
    const std::optional<double> fraction = plain_fraction(text);
    return fraction ? json(*fraction) : json(text);
}

// Makes JSON of YAML and notes the lines.
class yaml_converter {
  public:
    /** @param text_bytes  size of the YAML */
    yaml_converter(const std::string &path, std::size_t text_bytes,
                   std::map<std::string, int> &lines)
        : path_(path), lines_(lines),
          max_values_(std::min(max_plan_values, max_plan_values_per_byte * text_bytes)) {}

    json convert(const YAML::Node &node, const std::string &place, std::size_t depth = 0) {
        const int line = node.Mark().line + 1;
        if (++values_ > max_values_ || depth > max_plan_depth) {
            refuse(line, "the plan has too many values or levels");
        }
        lines_.emplace(place, line);
        if (node.IsMap()) {
            return object(node, place, depth);
        }
        if (node.IsSequence()) {
            json list = json::array();
            for (std::size_t index = 0; index < node.size(); ++index) {
                list.push_back(
                    convert(node[index], fmt::format("{}[{}]", place, index), depth + 1));
            }
            return list;
        }
        return node.IsScalar() ? scalar(node) : json();
    }

  private:
    json object(const YAML::Node &node, const std::string &place, std::size_t depth) {
        json members = json::object();
        for (const auto &member : node) {
            const int line = member.first.Mark().line + 1;
            if (!member.first.IsScalar()) {
                refuse(line, "the name of a member has to be a text");
            }
            const std::string &name = member.first.Scalar();
            if (name.size() > max_member_name_bytes) {
                refuse(line, fmt::format("the name of a member has {} bytes; it may have {}",
                                         name.size(), max_member_name_bytes));
            }
            if (!support::is_utf8(name) || members.contains(name)) {
                refuse(line, fmt::format("member {} is given twice, or is no UTF-8", name));
            }
            members[name] =
                convert(member.second, (place.empty() ? "" : place + ".") + name, depth + 1);
        }
        return members;
    }

    json scalar(const YAML::Node &node) {
        if (!support::is_utf8(node.Scalar())) {
            refuse(node.Mark().line + 1, "the text is no UTF-8");
        }
        return node.Tag() == "?" ? plain_scalar(node.Scalar()) : json(node.Scalar());
    }

    [[noreturn]] void refuse(int line, const std::string &what) const {
        throw bad_plan(fmt::format("{}:{}: {}", path_, line, what));
    }

    const std::string &path_;
    std::map<std::string, int> &lines_;
    const std::size_t max_values_;
    std::size_t values_ = 0;
};

// Takes what is parsed, and does nothing with it.
class document_skipper : public YAML::EventHandler {
  public:
    void OnDocumentStart(const YAML::Mark & /*mark*/) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnAlias(const YAML::Mark & /*mark*/, YAML::anchor_t /*anchor*/) override {}
    void OnScalar(const YAML::Mark & /*mark*/, const std::string & /*tag*/,
                  YAML::anchor_t /*anchor*/, const std::string & /*value*/) override {}
    void OnSequenceStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/,
                         YAML::anchor_t /*anchor*/, YAML::EmitterStyle::value /*style*/) override {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark & /*mark*/, const std::string & /*tag*/,
                    YAML::anchor_t /*anchor*/, YAML::EmitterStyle::value /*style*/) override {}
    void OnMapEnd() override {}
};

// The library takes some wrong texts for documents without end, so that they can't all be loaded.
bool is_one_document(const std::string &text) {
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    document_skipper skipper;
    return parser.HandleNextDocument(skipper) && !parser.HandleNextDocument(skipper);
}

json read_yaml(const std::string &text, const std::string &path,
               std::map<std::string, int> &lines) {
    try {
        if (!is_one_document(text)) {
            throw bad_plan(path + ": expected one YAML document, and nothing behind it");
        }
        return yaml_converter(path, text.size(), lines).convert(YAML::Load(text), "");
    } catch (const YAML::Exception &problem) {
        throw bad_plan(
            fmt::format("{}:{}: not valid YAML: {}", path, problem.mark.line + 1, problem.msg));
    }
}

} // namespace

plan_document::plan_document(const std::string &path, console &out) : path_(path) {
    const std::string text = file_text(path);
    if (text.size() > max_plan_bytes) {
        throw bad_plan(fmt::format("{} has {} bytes; a plan has at most {}", path, text.size(),
                                   max_plan_bytes));
    }
    root_ = std::make_unique<const json>(path.ends_with(".json")
                                             ? json(support::json_document(text, path).root().json)
                                             : read_yaml(text, path, lines_));
    check(out);
}

plan_document::plan_document(plan_document &&other) noexcept = default;
plan_document::~plan_document() = default;

void plan_document::check(console &out) const {
    const std::vector<schema_fault> faults = schema_faults(*root_);
    if (faults.empty()) {
        return;
    }
    const auto told = [this](const schema_fault &one) { return told_place(one.place) + one.what; };
    if (faults.size() == 1) {
        throw bad_plan(told(faults.front()));
    }
    for (std::size_t index = 0; index < std::min(faults.size(), max_told_faults); ++index) {
        out.notice(told(faults[index]));
    }
    throw bad_plan(fmt::format("{} is wrong in {} places; the first is {}", path_, faults.size(),
                               told(faults.front())));
}

std::string plan_document::beside(const std::string &name) const {
    return std::filesystem::path(path_).parent_path() / name;
}

std::string plan_document::told_place(const std::string &place) const {
    const auto line = lines_.find(place);
    return fmt::format("{}{}: {}{}", path_,
                       line == lines_.end() ? "" : fmt::format(":{}", line->second), place,
                       place.empty() ? "" : ": ");
}

void plan_document::refuse(const std::string &place, const std::string &what) const {
    throw bad_plan(told_place(place) + what);
}

} // namespace engr_app
