/* Runs the checks and prints their outcome. */
#include "runner.h"

#include "kit.h"

#include <stdarg.h>
#include <stdio.h>

#define PROMISE(group, name) void group##_##name(void);
#include "conformance/promises.def"
#undef PROMISE

typedef struct {
    const char *group;
    const char *name;
    void (*check)(void);
} promise_t;

static const promise_t promises[] = {
#define PROMISE(group, name) {#group, #name, group##_##name},
#include "conformance/promises.def"
#undef PROMISE
};
enum { PROMISE_COUNT = sizeof promises / sizeof promises[0] };

/** How often a check is made whose only fault was its time. */
enum { TRIES_MAX = 3 };

const conformance_harness_t *kit;

/** What became of the check that runs. Expectations may fail on several threads. */
static struct {
    atomic_bool broken;   /**< an expectation failed */
    atomic_bool for_good; /**< one that does not depend on the machine's speed did */
    bool skipped;
    char text[200]; /**< of the first failure, or why it was skipped */
} outcome;

static void tell(const char *file, int line, const char *format, va_list arguments) {
    const char *base = strrchr(file, '/');
    const int length = vsnprintf(outcome.text, sizeof outcome.text, format, arguments);
    const size_t used = length < 0 ? 0 : (size_t)length;
    if (used < sizeof outcome.text) {
        snprintf(outcome.text + used, sizeof outcome.text - used, " (%s:%d)",
                 base != NULL ? base + 1 : file, line);
    }
}

bool kit_expect(bool condition, const char *file, int line, const char *format, ...) {
    if (!condition) {
        atomic_store(&outcome.for_good, true);
    }
    if (!condition && !atomic_exchange(&outcome.broken, true)) {
        va_list arguments;
        va_start(arguments, format);
        tell(file, line, format, arguments);
        va_end(arguments);
    }
    return condition;
}

bool kit_expect_in_time(bool condition, const char *file, int line, const char *format, ...) {
    if (!condition && !atomic_exchange(&outcome.broken, true)) {
        va_list arguments;
        va_start(arguments, format);
        tell(file, line, format, arguments);
        va_end(arguments);
    }
    return condition;
}

void kit_skip(const char *reason) {
    outcome.skipped = true;
    snprintf(outcome.text, sizeof outcome.text, "%s", reason);
}

static const promise_t *under_check;

static void print_outcome(const char *word) {
    char line[400];
    const bool is_kept = strcmp(word, "ok") == 0;
    snprintf(line, sizeof line, "%-7s %s.%s%s%s", word, under_check->group, under_check->name,
             is_kept ? "" : ": ", is_kept ? "" : outcome.text);
    kit->print(line);
}

void run_give_up(const char *reason) {
    print_outcome("broken");
    char line[200];
    snprintf(line, sizeof line, "given up: %s; check the other promises one by one", reason);
    kit->print(line);
    kit->give_up();
}

static void check(const promise_t *promise) {
    under_check = promise;
    for (int tries = 0; tries < TRIES_MAX; ++tries) {
        atomic_store(&outcome.broken, false);
        atomic_store(&outcome.for_good, false);
        outcome.skipped = false;
        promise->check();
        if (!atomic_load(&outcome.broken) || atomic_load(&outcome.for_good)) {
            break;
        }
    }
    print_outcome(atomic_load(&outcome.broken) ? "broken" : outcome.skipped ? "skipped" : "ok");
}

static bool is_wanted(const promise_t *promise, const char *wanted) {
    if (wanted == NULL) {
        return true;
    }
    const size_t group = strlen(promise->group);
    return strncmp(wanted, promise->group, group) == 0 &&
           (wanted[group] == '\0' ||
            (wanted[group] == '.' && strcmp(wanted + group + 1, promise->name) == 0));
}

int32_t conformance_run(const conformance_harness_t *harness, const char *wanted,
                        uint32_t *skipped) {
    unsigned checked = 0;
    unsigned broken_count = 0;
    unsigned skipped_count = 0;
    kit = harness;
    for (size_t i = 0; i < PROMISE_COUNT; ++i) {
        if (is_wanted(&promises[i], wanted)) {
            check(&promises[i]);
            ++checked;
            broken_count += atomic_load(&outcome.broken) ? 1 : 0;
            skipped_count += !atomic_load(&outcome.broken) && outcome.skipped ? 1 : 0;
        }
    }
    if (checked == 0) {
        return -1;
    }
    char line[100];
    snprintf(line, sizeof line, "%u promises: %u kept, %u broken, %u skipped", checked,
             checked - broken_count - skipped_count, broken_count, skipped_count);
    kit->print(line);
    if (skipped != NULL) {
        *skipped = skipped_count;
    }
    return (int32_t)broken_count;
}

void conformance_list(void (*print)(const char *line)) {
    for (size_t i = 0; i < PROMISE_COUNT; ++i) {
        char line[100];
        snprintf(line, sizeof line, "%s.%s", promises[i].group, promises[i].name);
        print(line);
    }
}

int conformance_main(const conformance_harness_t *harness, int argc, char **argv) {
    enum { KEPT = 0, BROKEN = 1, WRONG_USAGE = 2, ALL_SKIPPED = 77 };
    const char *wanted = argc > 1 ? argv[1] : NULL;
    if (argc > 2 || (wanted != NULL && wanted[0] == '-' && strcmp(wanted, "--list") != 0)) {
        harness->print("usage: [--list | GROUP | GROUP.PROMISE]");
        return WRONG_USAGE;
    }
    if (wanted != NULL && strcmp(wanted, "--list") == 0) {
        conformance_list(harness->print);
        return KEPT;
    }
    uint32_t skipped = 0;
    const int32_t broken = conformance_run(harness, wanted, &skipped);
    if (broken < 0) {
        harness->print("there is no such promise; --list tells all");
        return WRONG_USAGE;
    }
    if (broken == 0 && skipped != 0 && wanted != NULL && strchr(wanted, '.') != NULL) {
        return ALL_SKIPPED;
    }
    return broken == 0 ? KEPT : BROKEN;
}
