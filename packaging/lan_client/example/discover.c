/* Shows the first gateway that announces itself on lo within some seconds (argument; 0 only opens
 * and closes). */
#include <engr_lan_client.h>

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    engr_client_options options = {.size = sizeof options,
                                   .interface_name = "lo",
                                   .key2_seed = getenv("DISCOVERY_SEED")}; /* NULL: the library's */
    engr_client *client = NULL;
    engr_client_error problem = engr_client_open_discovery(&options, &client);
    if (problem != ENGR_CLIENT_OK) {
        fprintf(stderr, "can't listen: %s\n", engr_client_error_name(problem));
        return 1;
    }
    struct pollfd waiting = {.fd = engr_client_descriptor(client), .events = POLLIN};
    if (poll(&waiting, 1, argc > 1 ? atoi(argv[1]) * 1000 : 6000) == 1) {
        engr_client_event *event = engr_client_next_event(client);
        if (event != NULL && event->kind == ENGR_CLIENT_ANNOUNCEMENT) {
            printf("gateway %s at %s\n", event->announcement->id, event->announcement->address);
        }
        engr_client_free_event(event);
    }
    engr_client_close(client);
    puts("done");
    return 0;
}
