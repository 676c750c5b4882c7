// The work of a plan with one gateway: looking how it differs, and making it as planned.
#pragma once

#include "base/failure.h"
#include "gateway/request.h"
#include "plan/plan.h"
#include "plan/progress.h"
#include "upgrade/image.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

enum class step_state {
    as_planned, /**< nothing had to be done */
    to_do,
    done,
    failed,
    not_tried, /**< something before it failed, or the work was interrupted */
};

/** How it is known that a step has worked. */
enum class step_check {
    none,
    noted,   /**< the progress file says that it was sent earlier */
    answer,  /**< the gateway has answered that it took it */
    report,  /**< the gateway has reported what came of it */
    reading, /**< it was read back */
};

struct plan_step {
    std::string item;  /**< as in "group kitchen" */
    std::string words; /**< what is so, or what there is to do; why it failed */
    step_state state = step_state::to_do;
    step_check check = step_check::none;
    bool irreversible = false;
};

/** What came of the work with one gateway. */
struct gateway_outcome {
    gateway_plan plan;
    std::string id; /**< empty: not known */
    std::string address;
    std::vector<plan_step> steps{};
    std::vector<std::string> notes{};
    std::optional<failure> problem{};             /**< what ended the work early */
    std::shared_ptr<const nlohmann::json> site{}; /**< its site report; null when it was not read */

    [[nodiscard]] std::size_t count(step_state state) const;

    /** @return whether all is as planned now */
    [[nodiscard]] bool is_success() const;
};

/** The images of a plan, each read once. May be used on any thread. */
class image_store {
  public:
    /** @throws failure of wrong usage */
    const firmware_image &open(const std::string &file);

  private:
    std::mutex mutex_;
    std::map<std::string, firmware_image> images_;
};

/** What the works with all gateways share. */
struct plan_context {
    plan_progress &progress;
    image_store &images;
    bool again;     /**< send also what was sent before and can't be read back */
    bool confirmed; /**< irreversible steps are wanted */
    std::atomic<bool> interrupted = false;
};

class gateway_work {
  public:
    /** All of them must live as long as this. */
    gateway_work(gateway_session &session, plan_context &context, gateway_outcome &outcome);

    gateway_work(const gateway_work &) = delete;
    gateway_work &operator=(const gateway_work &) = delete;
    ~gateway_work();

    /** Reads how the gateway is and lists the steps. @throws failure */
    void look();

    /** Does the steps that are to be done, and reads what came of them. */
    void apply();

  private:
    struct pending;

    void connect();
    void read_site(bool versions = true);
    [[nodiscard]] bool has_change(const char *item, const std::string &device = {}) const;
    [[nodiscard]] std::vector<std::string> changed_devices(const char *item) const;
    [[nodiscard]] std::string change_words(const char *item, const std::string &device) const;

    [[nodiscard]] std::string names_text(std::vector<std::string> ids) const;

    pending &add(const std::string &item, const std::string &words,
                 std::function<step_check()> work);
    pending &add_readable(const char *change, const std::string &device, const std::string &item,
                          const std::string &words_as_planned, std::function<step_check()> work);
    void add_noted(const std::string &item, const std::string &words, const std::string &content,
                   const std::vector<std::string> &devices, std::function<step_check()> work);

    void add_for_devices(const char *change, const std::string &item,
                         const std::vector<std::string> &devices, const char *verb,
                         const std::string &done_words, std::function<step_check()> work);

    void list_steps();
    void list_firmware(const std::string &device, const std::string &item,
                       const planned_image &image);
    void list_device_firmware();
    /** Notes of the step added last that reading has found it as planned. */
    void note_as_planned();
    void list_devices();
    void list_groups();
    void list_requests();
    void list_configuration();

    step_check upgrade(const std::string &device, const planned_image &image);
    step_check bind_missing();
    step_check let_join();
    std::size_t await_devices(std::chrono::steady_clock::time_point end);
    step_check remove_others();
    step_check change_group(const planned_group &group);
    step_check send_request(const planned_request &request);
    step_check send_linkage();
    std::string report_of(uint32_t type, const nlohmann::json &payload,
                          const std::vector<const char *> &same_members);

    void carry_out(pending &step);
    void carry_out_all(bool last);
    void verify();
    void stop(const failure &why);

    gateway_session &session_;
    plan_context &context_;
    gateway_outcome &outcome_;
    const gateway_plan &plan_;
    std::optional<report_subscription> reports_;
    std::shared_ptr<nlohmann::json> changes_;
    std::vector<std::string> missing_;    // planned devices that the gateway lacks
    bool is_empty_ = false;               // it has none of them
    std::vector<std::string> void_notes_; // items that it has lost with devices
    std::vector<pending> pending_;        // a step each, in the order of the outcome's
};

} // namespace engr_app
