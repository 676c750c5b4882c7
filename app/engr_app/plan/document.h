// The file of a site plan: YAML or JSON, with the line of each of its values.
#pragma once

#include <map>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class console;

/** A plan that is read and fits the schema. */
class plan_document {
  public:
    /**
     * Reads a file, "-" for standard input. A name that ends with .json is JSON, any other YAML 1.2
     * with one document of at most 4 MiB.
     *
     * @param out  is told everything that does not fit the schema, when that is more than one thing
     * @throws failure of wrong usage
     */
    plan_document(const std::string &path, console &out);
    plan_document(plan_document &&other) noexcept;
    ~plan_document();

    [[nodiscard]] const nlohmann::json &root() const { return *root_; }

    /** @return a file that the plan names: relative names are so from the plan's directory */
    [[nodiscard]] std::string beside(const std::string &name) const;

    /**
     * Throws a failure of wrong usage.
     *
     * @param place  as in "gateways[3].channel"
     */
    [[noreturn]] void refuse(const std::string &place, const std::string &what) const;

  private:
    [[nodiscard]] std::string told_place(const std::string &place) const;
    void check(console &out) const;

    std::string path_;
    std::map<std::string, int> lines_; // by place; none of JSON
    std::unique_ptr<const nlohmann::json> root_;
};

} // namespace engr_app
