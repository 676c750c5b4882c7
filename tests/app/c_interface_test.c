/* The C interface from C11: its header compiles as it is, and a program in C can list the devices.
 */
#include <engr_lan_client.h>

#include <poll.h>
#include <stdio.h>
#include <string.h>

static engr_client_event *wait_for(engr_client *client, engr_client_event_kind kind) {
    struct pollfd waiting = {.fd = engr_client_descriptor(client), .events = POLLIN};
    while (poll(&waiting, 1, 60000) == 1) {
        engr_client_event *event = engr_client_next_event(client);
        if (event != NULL && event->kind == kind) {
            return event;
        }
        engr_client_free_event(event);
    }
    return NULL;
}

int main(int argc, char **argv) {
    engr_client_options options = {.size = sizeof options, .address = argv[argc - 1]};
    engr_client *client = NULL;
    uint32_t id = 0;
    const uint32_t list = engr_client_frame_type("FRM_DEV_LIST");
    if (engr_client_open_gateway(&options, &client) != ENGR_CLIENT_OK ||
        engr_client_request(client, list, NULL, 0, 0, &id) != ENGR_CLIENT_OK) {
        return 1;
    }
    engr_client_event *answer = wait_for(client, ENGR_CLIENT_ANSWER);
    const int succeeded = answer != NULL && answer->request == id && answer->ret == 0;
    printf("%s\n", answer == NULL ? "no answer" : answer->payload);
    engr_client_free_event(answer);
    engr_client_close(client);
    return succeeded ? 0 : 1;
}
