// The public face of a conversation.
#include "lan_client/client.h"

#include "conversation.h"

#include <utility>

namespace lan_client {

client::client(event_loop &loop, client_options options, client_events events)
    : conversation_(std::make_shared<conversation>(loop, std::move(options), std::move(events))) {}

client::~client() {
    conversation_->abandon();
}

void client::open() {
    conversation_->open();
}
void client::close() {
    conversation_->close();
}

void client::ask(request wanted, completion done) {
    conversation_->ask(std::move(wanted), std::move(done));
}

void client::tell(request wanted) {
    conversation_->ask(std::move(wanted), {});
}

std::size_t client::unsent_bytes() const {
    return conversation_->unsent_bytes();
}

} // namespace lan_client
