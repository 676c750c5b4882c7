// upgrade: installs firmware on the gateway or to one of its devices.
#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "upgrade/image.h"
#include "upgrade/transfer.h"
#include "upgrade/version_order.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using std::chrono::steady_clock;

struct upgrade_arguments {
    std::string file;
    std::string version;
    std::string cid;
    bool dry_run = false;
    bool again = false;
    consent asked;

    // Opened by the first of the gateways, read by all.
    std::once_flag opened;
    std::optional<firmware_image> image;

    const firmware_image &the_image() {
        std::call_once(opened, [this] { image.emplace(file); });
        return *image;
    }
};

void check_arguments(const upgrade_arguments &given, const std::string &cid) {
    if (!is_plain_text(given.version, lan_client::max_version_bytes)) {
        throw wrong_usage("--version: expected 1 to 11 printable characters without quote and "
                          "backslash; gateways truncate longer ones");
    }
    if (!cid.empty() && !is_device_id(cid)) {
        throw wrong_usage("--cid: expected 1 to 25 printable characters without blank, quote and "
                          "backslash");
    }
}

std::string target_name(gateway_session &session, const upgrade_order &order) {
    return order.cid.empty() ? session.chosen().name()
                             : fmt::format("device {} of {}", order.cid, session.chosen().name());
}

// What is upgraded according to the gateway.
std::string running_text(const upgrade_status &status) {
    return status.running_id.empty() ? "an upgrade" : "an upgrade of " + status.running_id;
}

// "installed 2.0.1 -> 2.0.0, DOWNGRADE"
std::string change_text(const upgrade_status &before, const upgrade_order &order) {
    return fmt::format(
        "installed {} -> {}{}", before.version.empty() ? "an unknown version" : before.version,
        order.version, is_older_version(order.version, before.version) ? ", DOWNGRADE" : "");
}

int show_plan(gateway_session &session, const firmware_image &image, const upgrade_order &order,
              const upgrade_status &status) {
    const std::string under_way = status.running ? running_text(status) : "none";
    if (session.out().json()) {
        session.out().document({{"file", image.path()},
                                {"bytes", image.size()},
                                {"md5", image.md5()},
                                {"version", order.version},
                                {"cid", status.target_id},
                                {"installed", status.version},
                                {"downgrade", is_older_version(order.version, status.version)},
                                {"under_way", status.running},
                                {"under_way_cid", status.running ? status.running_id : ""}});
        return exit_success;
    }
    session.out().facts({{"file", image.path()},
                         {"size", fmt::format("{} bytes", image.size())},
                         {"MD5", image.md5()},
                         {"version", order.version},
                         {"device", target_name(session, order)},
                         {"installed version", status.version.empty() ? "-" : status.version},
                         {"change", change_text(status, order)},
                         {"under way", under_way}});
    return exit_success;
}

int print_outcome(gateway_session &session, const std::string &sentence,
                  const firmware_image &image, const upgrade_status &before,
                  const upgrade_status &after, bool upgraded) {
    return print_result(session, sentence,
                        {{"cid", after.target_id},
                         {"file", image.path()},
                         {"bytes", image.size()},
                         {"md5", image.md5()},
                         {"version_before", before.version},
                         {"version", after.version},
                         {"upgraded", upgraded},
                         {"downgrade", is_older_version(after.version, before.version)}});
}

// An older version is installed only with consent; without it the announcement is withdrawn.
void confirm_change(gateway_session &session, upgrade_arguments &given, upgrade_transfer &transfer,
                    const upgrade_order &order, const upgrade_status &before) {
    const std::string change = change_text(before, order);
    if (!is_older_version(order.version, before.version)) {
        return session.out().progress(fmt::format("{}: {}", target_name(session, order), change));
    }
    session.out().notice(fmt::format("{}: {}", target_name(session, order), change));
    try {
        given.asked.require_always(session, fmt::format("Install version {} over the newer {}",
                                                        order.version, before.version));
    } catch (const failure &) {
        static_cast<void>(transfer.ask_status(true));
        throw;
    }
}

int upgrade(gateway_session &session, upgrade_arguments &given) {
    const std::string cid = session.names().device_id(given.cid);
    check_arguments(given, cid);
    const firmware_image &image = given.the_image();
    const upgrade_order order{cid, given.version, image.size(), image.md5()};
    const std::string name = target_name(session, order);
    upgrade_transfer transfer(session, image, order);
    if (given.dry_run) {
        warn_of_withdrawal(session);
        return show_plan(session, image, order, transfer.ask_status(true));
    }
    given.asked.require(session, fmt::format("Install version {}", order.version));
    const upgrade_status before = transfer.ask_status(false);
    if (before.running) {
        throw failure("busy",
                      fmt::format("{} has {} under way, started by another app or by itself; "
                                  "try again after it",
                                  session.chosen().name(), running_text(before)));
    }
    if (same_version(before.version, order.version) && !given.again) {
        return print_outcome(
            session,
            fmt::format("{} has version {} already; use --again to install it anyway", name,
                        before.version),
            image, before, before, false);
    }
    confirm_change(session, given, transfer, order, before);
    const auto began = steady_clock::now();
    const upgrade_status after = transfer.carry_out();
    const auto seconds =
        std::chrono::round<std::chrono::seconds>(steady_clock::now() - began).count();
    return print_outcome(
        session,
        fmt::format("{} now has version {}{}; {} bytes in {} s", name, after.version,
                    before.version.empty() ? "" : fmt::format(" (before: {})", before.version),
                    image.size(), seconds),
        image, before, after, true);
}

} // namespace

verb_work declare_upgrade(CLI::App &parser) {
    const auto given = std::make_shared<upgrade_arguments>();
    parser.add_option("IMAGE", given->file, "The firmware image, 1 byte to 2 GiB")->required();
    parser
        .add_option("--version", given->version,
                    "Version of the image as the gateway shows it when it is installed, "
                    "at most 11 characters")
        ->type_name("VERSION")
        ->required();
    parser
        .add_option("--cid", given->cid,
                    "Upgrade this sub-device, by its id or your name; when left out, the gateway "
                    "itself")
        ->type_name("ID");
    parser.add_flag("--dry-run", given->dry_run,
                    "Show what would be installed where, and start nothing");
    parser.add_flag("--again", given->again,
                    "Install the image even if its version is installed already");
    given->asked.declare(parser, [arguments = given.get()] {
        return arguments->dry_run ? asked_runs::none : asked_runs::with_all;
    });
    parser.footer(
        "The bar shows what the gateway has taken. Success means that the gateway says that the "
        "new version is\ninstalled. Ctrl-C ends the upgrade on the gateway as well; the old "
        "version stays. So does the end of\nany other app's connection. An upgrade that ends in "
        "this way, or because the connection is\nlost, is started once more. A version that is "
        "older than the one installed needs your\nconsent on the terminal, or --yes.\n\n"
        "A gateway tells its version only to an app that announces an image. The dry run announces "
        "one of 0\nbytes, which is none, and so withdraws what another app has announced and not "
        "started.\n\n"
        "Examples:\n"
        "  engr_app upgrade gateway-2.0.1.bin --version 2.0.1\n"
        "  engr_app upgrade lamp.ota --version 1.4 --cid a1\n"
        "  engr_app upgrade gateway-2.0.1.bin --version 2.0.1 --all --yes");
    return with_arguments(given, upgrade);
}

} // namespace engr_app
