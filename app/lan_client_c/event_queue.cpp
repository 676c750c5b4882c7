// A queue over an eventfd.
#include "event_queue.h"

#include "lan_client/limits.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace lan_client_c {
namespace {

bool is_droppable(const engr_client_event &event) {
    return event.kind != ENGR_CLIENT_ANSWER && event.kind != ENGR_CLIENT_PROGRESS;
}

} // namespace

owned_event::owned_event(engr_client_event_kind kind_of_event) : engr_client_event{} {
    kind = kind_of_event;
    error_text = payload = address = "";
}

void owned_event::set_error(engr_client_error why, std::string text) {
    error_text_ = std::move(text);
    error = why;
    error_text = error_text_.c_str();
}

void owned_event::set_payload(std::string bytes) {
    payload_ = std::move(bytes);
    payload = payload_.c_str();
    payload_bytes = payload_.size();
}

void owned_event::set_address(std::string text) {
    address_ = std::move(text);
    address = address_.c_str();
}

void owned_event::set_announcement(engr_client_announcement content) {
    announcement_ = content;
    announcement_.id = id_text.c_str();
    announcement_.product_key = product_key_text.c_str();
    announcement_.version = version_text.c_str();
    announcement_.interface_name = interface_text.c_str();
    announcement_.address = address;
    announcement = &announcement_;
}

event_queue::event_queue() : descriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category());
    }
}

event_queue::~event_queue() {
    ::close(descriptor_);
}

bool event_queue::reserve_answer() {
    const std::lock_guard held(mutex_);
    const bool has_room = open_answers_ < max_open_answers;
    open_answers_ += has_room ? 1 : 0;
    return has_room;
}

void event_queue::give_back_answer() {
    const std::lock_guard held(mutex_);
    open_answers_ -= 1;
}

void event_queue::add(std::unique_ptr<owned_event> added) {
    const std::lock_guard held(mutex_);
    if (added->kind == ENGR_CLIENT_PROGRESS && replace_progress(added)) {
        return;
    }
    if (is_droppable(*added)) {
        droppable_ += 1;
        droppable_bytes_ += added->payload_bytes;
    }
    events_.push_back(std::move(added));
    while (droppable_ > 1 && (droppable_ > lan_client::max_kept_reports ||
                              droppable_bytes_ > lan_client::max_kept_report_bytes)) {
        drop_oldest();
    }
    static_cast<void>(::eventfd_write(descriptor_, 1));
}

bool event_queue::replace_progress(std::unique_ptr<owned_event> &added) {
    const auto earlier = std::ranges::find_if(events_, [&added](const auto &other) {
        return other->kind == ENGR_CLIENT_PROGRESS && other->request == added->request;
    });
    if (earlier == events_.end()) {
        return false;
    }
    std::swap(*earlier, added);
    return true;
}

void event_queue::drop_oldest() {
    const auto oldest =
        std::ranges::find_if(events_, [](const auto &event) { return is_droppable(*event); });
    droppable_ -= 1;
    droppable_bytes_ -= (*oldest)->payload_bytes;
    dropped_ += dropped_ < UINT32_MAX ? 1 : 0;
    events_.erase(oldest);
}

std::unique_ptr<owned_event> event_queue::take() {
    const std::lock_guard held(mutex_);
    if (events_.empty()) {
        return nullptr;
    }
    std::unique_ptr<owned_event> taken = std::move(events_.front());
    events_.pop_front();
    if (is_droppable(*taken)) {
        droppable_ -= 1;
        droppable_bytes_ -= taken->payload_bytes;
    }
    open_answers_ -= taken->kind == ENGR_CLIENT_ANSWER ? 1 : 0;
    taken->dropped = std::exchange(dropped_, 0);
    if (events_.empty()) {
        eventfd_t ignored = 0;
        static_cast<void>(::eventfd_read(descriptor_, &ignored));
    }
    return taken;
}

} // namespace lan_client_c
