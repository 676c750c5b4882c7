/* Promises of the message bus. */
#include "kit.h"

#include "platform/message_bus.h"

#include <stddef.h>

enum { TEXTS_MAX = 4, TEXT_SIZE = 8, QUEUE_LEAST = 16 };

/** What the one receiver does and notes: a callback has no argument. */
static struct {
    void (*action)(cmmod_msg_t *message); /**< or null */
    atomic_uint delivered;
    char texts[TEXTS_MAX][TEXT_SIZE];
    uint64_t thread;
    rfc_data_t *kept; /**< the last block; the receiver gives its reference back unless keeps */
    bool keeps;
    atomic_bool entered;
    atomic_bool open;
} receiver;

static void receive(cmmod_msg_t *message) {
    const unsigned at = atomic_load(&receiver.delivered);
    const char *bytes = message->rfc->data;
    EXPECT((uintptr_t)bytes % _Alignof(max_align_t) == 0,
           "expected the bytes to be aligned for any type");
    EXPECT(bytes[message->rfc->length] == 0, "expected a 0 byte behind the bytes");
    if (at < TEXTS_MAX && message->rfc->length < TEXT_SIZE) {
        memcpy(receiver.texts[at], bytes, message->rfc->length + 1);
    }
    receiver.thread = GetThrdSelfId();
    if (receiver.action != NULL) {
        receiver.action(message);
    }
    receiver.kept = message->rfc;
    if (!receiver.keeps) {
        put_rfc_data(message->rfc);
    }
    atomic_fetch_add(&receiver.delivered, 1);
}

static uint16_t begin(void (*action)(cmmod_msg_t *message)) {
    uint16_t id = CMMOD_NO_MESSAGE_ID;
    receiver.action = action;
    receiver.keeps = false;
    atomic_store(&receiver.delivered, 0);
    atomic_store(&receiver.entered, false);
    atomic_store(&receiver.open, false);
    memset(receiver.texts, '?', sizeof receiver.texts);
    EXPECT(cmmod_reg_msgcb(receive, &id) == 0, "expected a registration");
    EXPECT(id != CMMOD_NO_MESSAGE_ID, "expected the id to be another one than 0xFFFF");
    return id;
}

static void post(uint16_t id, const char *text) {
    EXPECT(cmmod_post_msg(id, text, text != NULL ? (uint32_t)strlen(text) : 0) == 0,
           "expected a message to be taken");
}

static void end(uint16_t id) {
    EXPECT(cmmod_unreg_msgcb(id) == 0, "expected a registration to be ended");
}

static void await(unsigned count) {
    EXPECT(kit_wait_count(&receiver.delivered, count), "expected %u messages, got %u", count,
           atomic_load(&receiver.delivered));
}

void bus_messages_arrive_in_order_as_copies(void) {
    const uint16_t id = begin(NULL);
    char text[] = "first";
    post(id, text);
    memset(text, '#', sizeof text - 1);
    post(id, "second");
    post(id, NULL);
    await(3);
    EXPECT(strcmp(receiver.texts[0], "first") == 0, "expected the bus to have its own copy");
    EXPECT(strcmp(receiver.texts[1], "second") == 0 && receiver.texts[2][0] == 0,
           "expected messages in the order in which they were posted");
    EXPECT(receiver.thread != GetThrdSelfId(), "expected delivery on another thread");
    end(id);
}

void bus_a_block_lives_until_it_is_given_back(void) {
    const uint16_t id = begin(NULL);
    receiver.keeps = true;
    post(id, "kept");
    await(1);
    end(id);
    EXPECT(strcmp(receiver.kept->data, "kept") == 0, "expected a kept block to stay");
    put_rfc_data(receiver.kept);
    put_rfc_data(NULL);
}

static void linger(cmmod_msg_t *message) {
    (void)message;
    atomic_store(&receiver.entered, true);
    kelo_hal_system_sleep(50);
}

void bus_an_unregistration_drops_and_waits(void) {
    const uint16_t id = begin(linger);
    post(id, "x");
    post(id, "x");
    post(id, "x");
    kit_wait(&receiver.entered);
    end(id);
    const unsigned after = atomic_load(&receiver.delivered);
    EXPECT(after != 0, "expected the callback to be over when the unregistration returns");
    const uint16_t next = begin(NULL);
    EXPECT(after <= 1, "expected waiting messages to be dropped");
    post(next, "y");
    await(1);
    EXPECT(receiver.texts[0][0] == 'y', "expected waiting messages to be dropped");
    EXPECT(cmmod_post_msg(id, "x", 1) != 0, "expected an ended registration to be unknown");
    EXPECT(cmmod_unreg_msgcb(id) != 0, "expected an ended registration to be unknown");
    end(next);
}

static void end_oneself(cmmod_msg_t *message) {
    end(message->message_id);
}

void bus_a_callback_may_end_its_own_registration(void) {
    const uint16_t id = begin(end_oneself);
    post(id, "x");
    await(1);
    EXPECT(cmmod_post_msg(id, "x", 1) != 0, "expected an ended registration to be unknown");
}

static void wait_until_open(cmmod_msg_t *message) {
    (void)message;
    atomic_store(&receiver.entered, true);
    kit_wait(&receiver.open);
}

void bus_sixteen_messages_fit(void) {
    const uint16_t id = begin(wait_until_open);
    post(id, "x");
    kit_wait(&receiver.entered);
    unsigned accepted = 1;
    while (accepted < 4 * QUEUE_LEAST && cmmod_post_msg(id, "x", 1) == 0) {
        ++accepted;
    }
    EXPECT(accepted > QUEUE_LEAST, "expected 16 messages to fit, %u did", accepted - 1);
    atomic_store(&receiver.open, true);
    await(accepted);
    post(id, "x"); /* there is room again */
    await(accepted + 1);
    end(id);
}

void bus_ids_come_back_late_and_never_while_in_use(void) {
    enum { LATE = 1000 };
    const uint16_t living = begin(NULL);
    uint16_t first = 0;
    for (uint32_t i = 0; i < kit->ids; ++i) {
        const uint16_t id = begin(NULL);
        first = i == 0 ? id : first;
        EXPECT(id != living, "expected an id in use not to be given again");
        EXPECT(i == 0 || i >= LATE || id != first, "expected an id not to come back at once");
        end(id);
    }
    end(living);
}
