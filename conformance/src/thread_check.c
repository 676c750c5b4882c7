/* Promises of threads. */
#include "kit.h"

enum { STEPS_MAX = 4 };

/** What a thread and its hooks note. Hooks have no argument, so there is one of it. */
static struct {
    thrd_handle_t handle;
    char steps[STEPS_MAX]; /**< e enter, b body, l leave; ? the handle was not there or stopped */
    atomic_uint step_count;
    uint64_t identities[STEPS_MAX];
    atomic_bool hook_waits;
} story;

static void begin_story(void) {
    memset(story.steps, 0, sizeof story.steps);
    story.handle = NULL;
    atomic_store(&story.step_count, 0);
    atomic_store(&story.hook_waits, false);
}

static void note(char step) {
    const unsigned at = atomic_load(&story.step_count);
    if (at < STEPS_MAX) {
        story.identities[at] = GetThrdSelfId();
        story.steps[at] = GetThrdSta(story.handle) == THRD_STATE_RUNNING ? step : '?';
        atomic_store(&story.step_count, at + 1);
    }
}

static void enter(void) {
    note('e');
}

static void body(void *argument) {
    note(*(const char *)argument);
}

static void leave(void) {
    if (atomic_load(&story.hook_waits)) {
        kelo_hal_system_delay(50);
    }
    note('l');
}

static void make_story(const char *letter) {
    const thrd_param_t param = {kit->stack_bytes, 5, "a_name_longer_than_fifteen"};
    EXPECT(CreateAndStart(&story.handle, enter, leave, body, (void *)(uintptr_t)letter, &param) ==
               0,
           "expected a thread to be made");
}

void thread_hooks_and_body_run_in_order(void) {
    begin_story();
    make_story("b");
    EXPECT(kit_wait_count(&story.step_count, 3), "expected both hooks and the body to run");
    EXPECT(DeleteThrdHandle(story.handle) == 0, "expected the thread to be released");
    EXPECT(memcmp(story.steps, "ebl", 3) == 0, "expected enter, body, leave; got %.3s",
           story.steps);
    EXPECT(story.identities[0] == story.identities[1] && story.identities[1] == story.identities[2],
           "expected hooks and body on one thread");
}

static void make_on_low_priority(void *argument) {
    (void)argument;
    if (kit->slow != NULL) {
        kit->slow(true);
    }
    make_story("b");
}

void thread_the_handle_is_stored_first(void) {
    if (kit->slow == NULL && !kit->has_priorities) {
        kit_skip("the harness has no slow, and the port no priorities");
        return;
    }
    const thrd_param_t param = {kit->stack_bytes, 0, "maker"};
    thrd_handle_t maker = NULL;
    begin_story();
    EXPECT(CreateAndStart(&maker, NULL, NULL, make_on_low_priority, NULL, &param) == 0,
           "expected a thread to be made");
    EXPECT(kit_wait_count(&story.step_count, 3), "expected the thread to run");
    EXPECT(story.steps[0] == 'e' && story.steps[1] == 'b',
           "expected the handle to be stored before hook and body run");
    EXPECT(DeleteThrdHandle(maker) == 0, "expected the thread to be released"); /* waits for it */
    EXPECT(DeleteThrdHandle(story.handle) == 0, "expected the thread to be released");
}

typedef struct {
    thrd_handle_t handle;
    atomic_bool begun;
    atomic_bool left;
    int32_t state_before;
    int32_t state_after;
} sleeper_t;

static void sleep_until_stopped(void *argument) {
    sleeper_t *sleeper = argument;
    sleeper->state_before = GetThrdSta(sleeper->handle);
    atomic_store(&sleeper->begun, true);
    kelo_hal_system_sleep(AN_HOUR_MS);
    sleeper->state_after = GetThrdSta(sleeper->handle);
    kelo_hal_system_delay(50);
    atomic_store(&sleeper->left, true);
}

void thread_a_stop_waits_for_body_and_hook(void) {
    const thrd_param_t param = {kit->stack_bytes, 3, "sleeper"};
    sleeper_t sleeper = {NULL, false, false, 0, 0};
    begin_story();
    atomic_store(&story.hook_waits, true);
    EXPECT(CreateAndStart(&sleeper.handle, NULL, leave, sleep_until_stopped, &sleeper, &param) == 0,
           "expected a thread to be made");
    EXPECT(kit_wait(&sleeper.begun), "expected the thread to run");
    kit_thread_t stopped;
    stopped.handle = sleeper.handle;
    kit_stop(&stopped);
    EXPECT(atomic_load(&sleeper.left), "expected a stop to wait for the body");
    EXPECT(atomic_load(&story.step_count) == 1, "expected a stop to wait for the leave hook");
    EXPECT(sleeper.state_before == THRD_STATE_RUNNING, "expected a thread to run at first");
    EXPECT(sleeper.state_after == THRD_STATE_STOPPING,
           "expected a thread to see that it is stopped");
}

static void sleep_slowly(void *argument) {
    sleeper_t *sleeper = argument;
    kit->slow(true);
    atomic_store(&sleeper->begun, true);
    kelo_hal_system_sleep(AN_HOUR_MS);
}

void thread_a_stop_just_before_a_wait_is_not_lost(void) {
    if (kit->slow == NULL) {
        kit_skip("the harness has no slow");
        return;
    }
    sleeper_t sleeper = {NULL, false, false, 0, 0};
    kit_thread_t thread;
    kit_start(&thread, sleep_slowly, &sleeper);
    kit_wait(&sleeper.begun);
    kit_stop(&thread);
}

static void stop_oneself(void *argument) {
    sleeper_t *self = argument;
    EXPECT(DeleteThrdHandle(self->handle) == 0, "expected a thread to be able to stop itself");
    self->state_after = GetThrdSta(self->handle);
    kelo_hal_system_sleep(AN_HOUR_MS);
    self->state_before = GetThrdSta(self->handle);
    atomic_store(&self->left, true);
}

void thread_a_thread_may_stop_itself(void) {
    const thrd_param_t param = {kit->stack_bytes, 3, "own_end"};
    for (int i = 0; i < 20; ++i) {
        sleeper_t self = {NULL, false, false, 0, 0};
        EXPECT(CreateAndStart(&self.handle, NULL, NULL, stop_oneself, &self, &param) == 0,
               "expected a thread to be made");
        if (!EXPECT(kit_wait(&self.left), "expected a thread that stops itself to go on")) {
            return;
        }
        EXPECT(self.state_after == THRD_STATE_STOPPING && self.state_before == THRD_STATE_STOPPING,
               "expected its handle to be valid until its body returns");
    }
}

enum { IDENTITIES = 4 };

static struct {
    atomic_uint count;
    atomic_bool is_over;
    uint64_t of[IDENTITIES];
} identities;

static void tell_identity(void *argument) {
    (void)argument;
    const uint64_t own = GetThrdSelfId();
    identities.of[atomic_fetch_add(&identities.count, 1)] = own;
    kit_wait(&identities.is_over);
    EXPECT(GetThrdSelfId() == own, "expected a thread to keep its identity");
}

void thread_each_has_an_identity(void) {
    kit_thread_t threads[IDENTITIES - 1];
    atomic_store(&identities.count, 1);
    atomic_store(&identities.is_over, false);
    identities.of[0] = GetThrdSelfId();
    for (int i = 0; i < IDENTITIES - 1; ++i) {
        kit_start(&threads[i], tell_identity, NULL);
    }
    EXPECT(kit_wait_count(&identities.count, IDENTITIES), "expected all threads to run at a time");
    atomic_store(&identities.is_over, true);
    for (int i = 0; i < IDENTITIES - 1; ++i) {
        kit_join(&threads[i]);
    }
    for (int i = 0; i < IDENTITIES; ++i) {
        EXPECT(identities.of[i] != 0, "expected no identity to be 0");
        for (int j = 0; j < i; ++j) {
            EXPECT(identities.of[i] != identities.of[j], "expected each thread to have its own");
        }
    }
}

/** Goes down the stack until so many bytes are used. */
static void use_stack(uintptr_t top, uint32_t bytes) {
    volatile char used[256];
    memset((void *)(uintptr_t)used, 1, sizeof used);
    const uintptr_t here = (uintptr_t)used;
    if ((here < top ? top - here : here - top) + 2 * sizeof used < bytes) {
        use_stack(top, bytes);
    }
    used[0] = used[1]; /* so that the call above is none at the end */
}

static void use_deep_stack(void *argument) {
    (void)argument;
    volatile char top = 0;
    use_stack((uintptr_t)&top, kit->deep_stack_bytes - 256);
}

void thread_the_stack_is_as_large_as_asked(void) {
    const thrd_param_t param = {kit->deep_stack_bytes, 0, "deep"};
    kit_thread_t thread = {NULL, use_deep_stack, NULL, false};
    EXPECT(CreateAndStart(&thread.handle, NULL, NULL, use_deep_stack, NULL, &param) == 0,
           "expected a thread with a stack of %u bytes", (unsigned)kit->deep_stack_bytes);
    kit_stop(&thread);
}

void thread_wrong_uses_do_nothing(void) {
    const thrd_param_t param = {kit->stack_bytes, 3, "none"};
    char unused;
    thrd_handle_t handle = (thrd_handle_t)(void *)&unused;
    EXPECT(DeleteThrdHandle(NULL) == 0, "expected DeleteThrdHandle(null) to return 0");
    EXPECT(GetThrdSta(NULL) == THRD_STATE_STOPPING, "expected GetThrdSta(null) to tell a stop");
    EXPECT(CreateAndStart(&handle, NULL, NULL, NULL, NULL, &param) != 0,
           "expected a thread without an entry function to be refused");
    EXPECT(handle == NULL, "expected a failed creation to store null");
    handle = (thrd_handle_t)(void *)&unused;
    EXPECT(CreateAndStart(&handle, NULL, NULL, use_deep_stack, NULL, NULL) != 0,
           "expected a thread without parameters to be refused");
    EXPECT(handle == NULL, "expected a failed creation to store null");
}
