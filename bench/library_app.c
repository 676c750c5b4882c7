/* An app that is nothing but the library: bench/hostile_gateways.py lies to it.
 *
 *     library_app PORT devices | log | upgrade FILE | watch SECONDS     of the gateway on 127.0.0.1
 *     library_app 0 discover SECONDS
 *
 * Exit 0: it got what it asked for, or its time was over; 1: it did not, and standard error says
 * why; 2: wrong usage. */
#include <engr_lan_client.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static double now_s(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static int tell(const char *what, const engr_client_event *of) {
    fprintf(stderr, "%s: %s %s\n", what, engr_client_error_name(of->error), of->error_text);
    return 1;
}

/* Takes events until the answer to a request is there, or, for a request that is 0, the time is
 * over. */
static int take_events(engr_client *client, uint32_t request, double seconds) {
    const double end = now_s() + seconds;
    unsigned long events = 0;
    while (request != 0 || now_s() < end) {
        struct pollfd waiting = {.fd = engr_client_descriptor(client), .events = POLLIN};
        poll(&waiting, 1, 100);
        engr_client_event *event = engr_client_next_event(client);
        if (event == NULL) {
            continue;
        }
        ++events;
        const int is_answer = event->kind == ENGR_CLIENT_ANSWER && event->request == request;
        const int is_end = is_answer || event->kind == ENGR_CLIENT_DISCONNECTED;
        int status = 0;
        if (is_end && event->error != ENGR_CLIENT_OK) {
            status = tell(is_answer ? "no answer" : "no connection", event);
        } else if (is_answer) {
            printf("%zu bytes\n", event->payload_bytes);
        }
        engr_client_free_event(event);
        if (is_end) {
            return status;
        }
    }
    printf("%lu events\n", events);
    return 0;
}

/* A request of 0 is one whose answer is not waited for. */
static engr_client_error ask(engr_client *client, char **words, uint32_t *request) {
    if (strcmp(words[0], "devices") == 0) {
        return engr_client_devices(client, 0, request);
    }
    if (strcmp(words[0], "log") == 0) {
        return engr_client_log(client, request);
    }
    if (strcmp(words[0], "upgrade") == 0 && words[1] != NULL) {
        return engr_client_upgrade(client, words[1], "2.0.1", "", false, request);
    }
    if (strcmp(words[0], "watch") == 0) {
        const uint32_t keep_alive = engr_client_frame_type("FRM_KEEPALIVE");
        return engr_client_request(client, keep_alive, NULL, 0, 0, NULL);
    }
    return strcmp(words[0], "discover") == 0 ? ENGR_CLIENT_OK : ENGR_CLIENT_BAD_ARGUMENT;
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fputs("usage: library_app PORT devices|log|upgrade FILE|watch SECONDS|discover SECONDS\n",
              stderr);
        return 2;
    }
    const engr_client_options options = {
        .size = sizeof options, .address = "127.0.0.1", .port = (uint16_t)atoi(argv[1])};
    engr_client *client = NULL;
    uint32_t request = 0;
    engr_client_error problem = strcmp(argv[2], "discover") == 0
                                    ? engr_client_open_discovery(&options, &client)
                                    : engr_client_open_gateway(&options, &client);
    if (problem == ENGR_CLIENT_OK) {
        problem = ask(client, argv + 2, &request);
    }
    if (problem != ENGR_CLIENT_OK) {
        fprintf(stderr, "%s\n", engr_client_error_name(problem));
        engr_client_close(client);
        return 2;
    }
    const int status = take_events(client, request, argc > 3 ? atof(argv[3]) : 5);
    engr_client_close(client);
    return status;
}
