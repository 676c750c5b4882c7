/* The message bus: a ring of blocks, and one context that delivers them. */
#include "internal.h"

#include "platform/memory.h"
#include "platform/message_bus.h"

#include <pthread.h>
#include <stddef.h>
#include <string.h>

enum { REGISTRATIONS_MAX = 16, QUEUE_MAX = 32 };

/** What lies behind a contract's record: the count of references and the bytes. */
struct block {
    rfc_data_t record;
    atomic_uint references;
    _Alignas(max_align_t) char bytes[];
};

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER; /**< a message, or a callback returned */
static struct {
    uint16_t id;
    cmmod_callback_t callback; /**< null: free */
} registrations[REGISTRATIONS_MAX];
static struct {
    uint16_t id;
    struct block *block;
} queue[QUEUE_MAX];
static unsigned queued;
static uint16_t last_id = CMMOD_NO_MESSAGE_ID;
static int is_running; /**< a callback runs, that of running_id */
static uint16_t running_id;
static int has_context;
static pthread_t context;

static int find(uint16_t id) {
    for (int i = 0; i < REGISTRATIONS_MAX; ++i) {
        if (registrations[i].callback != NULL && registrations[i].id == id) {
            return i;
        }
    }
    return -1;
}

void put_rfc_data(rfc_data_t *rfc) {
    struct block *block = (struct block *)(void *)rfc; /* its first member */
    if (block != NULL && atomic_fetch_sub(&block->references, 1) == 1) {
        Free(block);
    }
}

static void *run(void *unused) {
    (void)unused;
    pthread_mutex_lock(&mutex);
    context = pthread_self();
    for (;;) {
        if (queued == 0) {
            pthread_cond_wait(&changed, &mutex);
            continue;
        }
        cmmod_msg_t message = {queue[0].id, &queue[0].block->record};
        --queued;
        memmove(queue, queue + 1, queued * sizeof queue[0]);
        const cmmod_callback_t callback = registrations[find(message.message_id)].callback;
        is_running = 1;
        running_id = message.message_id;
        pthread_mutex_unlock(&mutex);
        callback(&message); /* which gives the reference back */
        pthread_mutex_lock(&mutex);
        is_running = 0;
        pthread_cond_broadcast(&changed);
    }
    return NULL;
}

int32_t cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message_id) {
    int32_t result = -1;
    pthread_mutex_lock(&mutex);
    if (!has_context) {
        has_context = port_start_context(run) == 0;
    }
    for (int i = 0; i < REGISTRATIONS_MAX && result != 0 && has_context && callback != NULL; ++i) {
        if (registrations[i].callback == NULL) {
            do {
                ++last_id;
            } while (last_id == CMMOD_NO_MESSAGE_ID || find(last_id) >= 0);
            registrations[i].id = last_id;
            registrations[i].callback = callback;
            *message_id = last_id;
            result = 0;
        }
    }
    pthread_mutex_unlock(&mutex);
    return result;
}

int32_t cmmod_unreg_msgcb(uint16_t message_id) {
    pthread_mutex_lock(&mutex);
    const int at = find(message_id);
    if (at >= 0) {
        unsigned kept = 0;
        registrations[at].callback = NULL;
        for (unsigned i = 0; i < queued; ++i) {
            if (queue[i].id == message_id) {
                put_rfc_data(&queue[i].block->record);
            } else {
                queue[kept++] = queue[i];
            }
        }
        queued = kept;
        while (is_running && running_id == message_id && !pthread_equal(context, pthread_self())) {
            pthread_cond_wait(&changed, &mutex);
        }
    }
    pthread_mutex_unlock(&mutex);
    return at >= 0 ? 0 : -1;
}

int32_t cmmod_post_msg(uint16_t message_id, const void *data, uint32_t length) {
    int32_t result = -1;
    struct block *block = Malloc(sizeof *block + (size_t)length + 1);
    if (block == NULL) {
        return -1;
    }
    block->record = (rfc_data_t){block->bytes, length};
    atomic_init(&block->references, 1);
    if (length != 0) {
        memcpy(block->bytes, data, length);
    }
    block->bytes[length] = '\0';
    pthread_mutex_lock(&mutex);
    if (find(message_id) >= 0 && queued < QUEUE_MAX) {
        queue[queued].id = message_id;
        queue[queued].block = block;
        ++queued;
        pthread_cond_broadcast(&changed);
        result = 0;
    }
    pthread_mutex_unlock(&mutex);
    if (result != 0) {
        Free(block);
    }
    return result;
}
