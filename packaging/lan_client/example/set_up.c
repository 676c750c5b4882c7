/* Gives a gateway in access-point mode its Wi-Fi network, and then an upgrade: set_up INTERFACE
 * GATEWAY-ID NETWORK PASSWORD TOKEN IMAGE VERSION. */
#include <engr_lan_client.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

/* Waits for the answer to the only request of a client, and shows how far it is. */
static engr_client_event *await_answer(engr_client *client, const char *what) {
    struct pollfd waiting = {.fd = engr_client_descriptor(client), .events = POLLIN};
    for (;;) {
        engr_client_event *event = engr_client_next_event(client);
        if (event == NULL) {
            poll(&waiting, 1, -1);
            continue;
        }
        if (event->kind == ENGR_CLIENT_PROGRESS) {
            printf("%s: %llu of %llu\n", what, (unsigned long long)event->done,
                   (unsigned long long)event->total);
        } else if (event->kind == ENGR_CLIENT_ANSWER) {
            if (event->error == ENGR_CLIENT_OK && event->ret == 0) {
                return event;
            }
            fprintf(stderr, "%s: %s: %s%s\n", what, engr_client_error_name(event->error),
                    event->error_text, event->payload);
            exit(1);
        }
        engr_client_free_event(event);
    }
}

static void check(engr_client_error problem, const char *what) {
    if (problem != ENGR_CLIENT_OK) {
        fprintf(stderr, "%s: %s\n", what, engr_client_error_name(problem));
        exit(1);
    }
}

int main(int argc, char **argv) {
    engr_client *client = NULL;
    if (argc != 8) {
        fputs("usage: set_up INTERFACE GATEWAY-ID NETWORK PASSWORD TOKEN IMAGE VERSION\n", stderr);
        return 2;
    }
    engr_client_options options = {.size = sizeof options, .interface_name = argv[1]};
    const engr_client_network network = {.size = sizeof network,
                                         .network = argv[3],
                                         .password = argv[4],
                                         .token = argv[5],
                                         .gateway_id = argv[2]};
    check(engr_client_open_provisioning(&options, &client), "provisioning");
    check(engr_client_provision(client, &network, NULL), "provisioning");
    engr_client_event *joined = await_answer(client, "network sent");
    engr_client_close(client);
    printf("gateway %s has joined at %s\n", joined->announcement->id, joined->address);

    options.address = joined->address; /* copied when it is opened */
    check(engr_client_open_gateway(&options, &client), "connection");
    engr_client_free_event(joined);
    check(engr_client_upgrade(client, argv[6], argv[7], NULL, false, NULL), "upgrade");
    engr_client_event *upgraded = await_answer(client, "bytes taken");
    printf("upgraded: %s\n", upgraded->payload);
    engr_client_free_event(upgraded);
    engr_client_close(client);
    return 0;
}
