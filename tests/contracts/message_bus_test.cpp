// Contract of the message bus.
#include "contract_test.h"

#include "platform/message_bus.h"

#include <cstddef>
#include <vector>

namespace contract_tests {

namespace {

std::function<void(cmmod_msg_t *)> on_message;
std::atomic<int> delivered;

void receive(cmmod_msg_t *message) {
    on_message(message);
    delivered++;
}

class message_bus_contract : public contract_test {
  protected:
    /** Registers the receiver, which runs this function. */
    static uint16_t start(std::function<void(cmmod_msg_t *)> callback) {
        uint16_t id = CMMOD_NO_MESSAGE_ID;
        on_message = std::move(callback);
        delivered = 0;
        EXPECT_EQ(cmmod_reg_msgcb(receive, &id), 0);
        EXPECT_NE(id, uint16_t{CMMOD_NO_MESSAGE_ID});
        return id;
    }
};

} // namespace

TEST_F(message_bus_contract, messages_arrive_in_order_on_another_thread_as_aligned_copies) {
    port->run([&] {
        std::vector<std::string> texts;
        std::atomic<uint64_t> thread{0};
        const uint16_t id = start([&](cmmod_msg_t *message) {
            const auto *bytes = static_cast<const char *>(message->rfc->data);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % alignof(std::max_align_t), 0u);
            EXPECT_EQ(bytes[message->rfc->length], 0);
            texts.emplace_back(bytes, message->rfc->length);
            thread = GetThrdSelfId();
            put_rfc_data(message->rfc);
        });
        for (std::string text : {"first", "second", ""}) {
            EXPECT_EQ(cmmod_post_msg(id, text.empty() ? nullptr : text.data(),
                                     static_cast<uint32_t>(text.size())),
                      0);
            text.assign(text.size(), '#'); // the bus has its own copy
        }
        EXPECT_TRUE(wait_until([] { return delivered == 3; }));
        EXPECT_EQ(texts, (std::vector<std::string>{"first", "second", ""}));
        EXPECT_NE(thread, GetThrdSelfId());
        EXPECT_EQ(cmmod_unreg_msgcb(id), 0);
    });
}

TEST_F(message_bus_contract, a_block_lives_until_its_reference_is_given_back) {
    port->run([&] {
        rfc_data_t *kept = nullptr;
        const uint16_t id = start([&](cmmod_msg_t *message) { kept = message->rfc; });
        EXPECT_EQ(cmmod_post_msg(id, "kept", 4), 0);
        EXPECT_TRUE(wait_until([] { return delivered == 1; }));
        EXPECT_EQ(cmmod_unreg_msgcb(id), 0);
        EXPECT_STREQ(static_cast<const char *>(kept->data), "kept");
        put_rfc_data(kept);
        put_rfc_data(nullptr);
    });
}

TEST_F(message_bus_contract, an_unregistration_drops_what_waits_and_waits_for_the_callback) {
    port->run([&] {
        std::atomic<bool> entered{false};
        const uint16_t id = start([&](cmmod_msg_t *message) {
            put_rfc_data(message->rfc);
            entered = true;
            kelo_hal_system_sleep(50);
        });
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(cmmod_post_msg(id, "x", 1), 0);
        }
        EXPECT_TRUE(wait_until([&] { return entered.load(); }));
        EXPECT_EQ(cmmod_unreg_msgcb(id), 0);
        EXPECT_GE(delivered, 1) << "the callback still ran";
        const int after = delivered;
        const uint16_t next = start([](cmmod_msg_t *message) { put_rfc_data(message->rfc); });
        EXPECT_LE(after, 1) << "a message was delivered that had to be dropped";
        EXPECT_EQ(cmmod_post_msg(next, "y", 1), 0);
        EXPECT_TRUE(wait_until([] { return delivered == 1; }));
        EXPECT_LT(cmmod_post_msg(id, "x", 1), 0) << "the id is unknown now";
        EXPECT_LT(cmmod_unreg_msgcb(id), 0);
        EXPECT_EQ(cmmod_unreg_msgcb(next), 0);
    });
}

TEST_F(message_bus_contract, a_callback_may_end_its_own_registration) {
    port->run([&] {
        const uint16_t id = start([](cmmod_msg_t *message) {
            put_rfc_data(message->rfc);
            EXPECT_EQ(cmmod_unreg_msgcb(message->message_id), 0);
        });
        EXPECT_EQ(cmmod_post_msg(id, "x", 1), 0);
        EXPECT_TRUE(wait_until([] { return delivered == 1; }));
        EXPECT_LT(cmmod_post_msg(id, "x", 1), 0);
    });
}

TEST_F(message_bus_contract, a_full_queue_refuses_messages_and_recovers) {
    port->run([&] {
        std::atomic<bool> open{false};
        const uint16_t id = start([&](cmmod_msg_t *message) {
            put_rfc_data(message->rfc);
            wait_until([&] { return open.load(); });
        });
        int accepted = 0;
        while (accepted < 1'000'000 && cmmod_post_msg(id, "x", 1) == 0) {
            accepted++;
        }
        EXPECT_LT(accepted, 1'000'000) << "the queue has no bound";
        EXPECT_GE(accepted, 16);
        open = true;
        EXPECT_TRUE(wait_until([&] { return delivered == accepted; }));
        EXPECT_EQ(cmmod_post_msg(id, "x", 1), 0);
        EXPECT_TRUE(wait_until([&] { return delivered == accepted + 1; }));
        EXPECT_EQ(cmmod_unreg_msgcb(id), 0);
    });
}

} // namespace contract_tests
