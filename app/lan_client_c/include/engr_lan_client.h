/*
 * The LAN client of Zigbee gateways in engineering mode, for C and for whatever can call C: finding
 * gateways, requests and their answers, reports, upgrades, giving a gateway its Wi-Fi network.
 *
 * A client is a handle for one gateway, for listening to announcements, or for provisioning. It
 * works on a thread of its own, which calls nothing of the caller's: what happens is kept as
 * events, which the caller takes when it likes. A descriptor becomes readable while an event waits,
 * for poll, epoll and event loops.
 *
 *     engr_client_options options = {.size = sizeof options, .address = "192.0.2.7"};
 *     engr_client *client = NULL;
 *     uint32_t id = 0;
 *     if (engr_client_open_gateway(&options, &client) == ENGR_CLIENT_OK &&
 *         engr_client_request(client, 241, NULL, 0, 0, &id) == ENGR_CLIENT_OK) {
 *         ... poll engr_client_descriptor(client), then engr_client_next_event(client) ...
 *     }
 *     engr_client_close(client);
 *
 * A handle that is passed has to be open; it may be NULL only where that is said, and where the
 * result may be BAD_ARGUMENT.
 *
 * Threads: a handle is used by one thread at a time; several handles may be used by several threads
 * at once. No function waits for the network. Functions without a handle may be called anywhere. A
 * child process of fork must use no handle of its parent.
 *
 * Texts are UTF-8 and end with a zero byte. The functions copy the texts that they are given.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Why something did not work. */
typedef enum engr_client_error {
    ENGR_CLIENT_OK = 0,
    ENGR_CLIENT_NO_INTERFACE = 1,    /**< the named network interface is missing or not permitted */
    ENGR_CLIENT_BAD_ADDRESS = 2,     /**< the address is not an IPv4 address in dotted decimal */
    ENGR_CLIENT_REFUSED = 3,         /**< nobody listens at the address */
    ENGR_CLIENT_UNREACHABLE = 4,     /**< no way to the address, or a port that can't be opened */
    ENGR_CLIENT_TABLE_FULL = 5,      /**< closed at once: the gateway has no room for another app */
    ENGR_CLIENT_CONNECTION_LOST = 6, /**< closed after it had worked */
    ENGR_CLIENT_TIMED_OUT = 7,       /**< connected, but no answer in time */
    ENGR_CLIENT_WRONG_KEY = 8,       /**< the answer can't be decrypted with the key given */
    ENGR_CLIENT_DEACTIVATED =
        9,                    /**< a local key was given, but the gateway uses the built-in one */
    ENGR_CLIENT_DAMAGED = 10, /**< the answer's checksum is wrong, or a segment is missing */
    ENGR_CLIENT_ANSWER_TOO_LONG = 11, /**< the answer is longer than any gateway's */
    ENGR_CLIENT_TOO_LARGE = 12,       /**< the request is longer than gateways accept */
    ENGR_CLIENT_QUEUE_FULL = 13,    /**< too much waits to be sent, or to be taken by the caller */
    ENGR_CLIENT_CANCELLED = 14,     /**< ended by the caller */
    ENGR_CLIENT_BAD_ARGUMENT = 100, /**< an argument can't be right; nothing was done */
    ENGR_CLIENT_NO_RESOURCES = 101, /**< the system has no memory, descriptor or thread left */
    ENGR_CLIENT_BAD_ANSWER = 102,   /**< the gateway's answer is not what was asked for */
    ENGR_CLIENT_BUSY = 103,         /**< an upgrade, or a request of this kind, is under way */
    ENGR_CLIENT_UNKNOWN_DEVICE = 104,  /**< the gateway has no device of this id */
    ENGR_CLIENT_UPGRADE_FAILED = 105,  /**< the new version is not installed */
    ENGR_CLIENT_OUTCOME_UNKNOWN = 106, /**< the gateway can't be asked how the upgrade ended */
    ENGR_CLIENT_NOT_WAITING = 107,     /**< no gateway says that it needs Wi-Fi: nothing was sent */
    ENGR_CLIENT_WIFI_FAILURE = 108,    /**< a gateway could not join its Wi-Fi network */
    ENGR_CLIENT_UNCONFIRMED = 109 /**< a gateway appeared that may be another than the right one */
} engr_client_error;

/** What kind of event it is, with the members that it sets beside `kind` and `dropped`. */
typedef enum engr_client_event_kind {
    /** The gateway answers. Sets nothing. */
    ENGR_CLIENT_CONNECTED = 1,
    /** The connection ended or could not be made. Sets error, error_text, pause_ms. */
    ENGR_CLIENT_DISCONNECTED = 2,
    /**
     * The one outcome of a request. Sets request, type, error, error_text, and without an error
     * ret and payload; what else is said where the request is described.
     */
    ENGR_CLIENT_ANSWER = 3,
    /** A request is getting on. Sets request, type, done, total. Only the newest is kept. */
    ENGR_CLIENT_PROGRESS = 4,
    /**
     * What the gateway reports by itself, or answers too late. Sets type, ret and payload; error
     * and error_text when it can't be read.
     */
    ENGR_CLIENT_REPORT = 5,
    /** A gateway announced itself; every gateway does so every 5 s. Sets announcement, address. */
    ENGR_CLIENT_ANNOUNCEMENT = 6,
    /** A datagram that is damaged or of a gateway with another seed. Sets address. */
    ENGR_CLIENT_UNREADABLE = 7
} engr_client_event_kind;

/** What to expect after a request of a frame type. */
typedef enum engr_client_answer_rule {
    ENGR_CLIENT_ANSWER_ALWAYS = 0,
    ENGR_CLIENT_ANSWER_ON_FAILURE = 1, /**< accepted in silence: the request times out */
    ENGR_CLIENT_ANSWER_ON_SUCCESS = 2, /**< refused in silence: the request times out */
    ENGR_CLIENT_ANSWER_NEVER = 3,
    ENGR_CLIENT_NOT_A_REQUEST = 4, /**< only a gateway sends it */
    ENGR_CLIENT_ANSWER_UNKNOWN = 5 /**< the client does not know the type */
} engr_client_answer_rule;

/** How a gateway announces itself. */
typedef struct engr_client_announcement {
    const char *id;
    const char *address; /**< sender of the datagram: where to connect */
    const char *product_key;
    const char *version; /**< of the protocol */
    int64_t ability;
    bool activated; /**< it has to be opened with its local key */
    bool needs_wifi_setup;
    const char *interface_name; /**< that it was heard on; "": not known */
} engr_client_announcement;

/** An event. Members that its kind does not set are 0; texts are "" then, but never NULL. */
typedef struct engr_client_event {
    engr_client_event_kind kind;
    uint32_t dropped; /**< older reports, datagrams and changes that found no room, before this */
    engr_client_error error;
    const char *error_text; /**< details of the system for people, may be empty */
    uint32_t request;       /**< as engr_client_request gave it */
    uint32_t type;          /**< number of the frame type */
    uint32_t ret;           /**< 0: the gateway did it; else the payload may say why not */
    const char *payload;    /**< decrypted; a transfer in segments is put together */
    size_t payload_bytes;   /**< without the zero byte behind it */
    uint64_t done;          /**< of total */
    uint64_t total;         /**< bytes to send, or segments to receive */
    uint32_t pause_ms;      /**< until the next attempt to connect; 0: there is none */
    int64_t result;         /**< the gateway's number for a failure, 0 when it tells none */
    const char *address;    /**< IPv4, sender of the datagram */
    const engr_client_announcement *announcement; /**< else NULL */
} engr_client_event;

/** How to open a client. What is 0 or NULL has the value that its line names. */
typedef struct engr_client_options {
    size_t size;                /**< sizeof(engr_client_options), so that it can grow */
    const char *interface_name; /**< network interface that traffic stays on; NULL: any */

    /* Of a gateway: */
    const char *address;         /**< IPv4 in dotted decimal; must be given */
    uint16_t port;               /**< 6668 */
    const char *local_key;       /**< 16 bytes, of an activated gateway; NULL: built-in key 3 */
    bool reconnect;              /**< come back by itself once a connection has worked */
    uint32_t connect_timeout_ms; /**< 5000 */
    uint32_t request_timeout_ms; /**< 5000 */

    /* Seeds of the built-in keys, 16 bytes each; NULL: the one that the library was built with. */
    const char *key1_seed; /**< of the key for Wi-Fi configurations */
    const char *key2_seed; /**< of the key of announcements */
    const char *key3_seed; /**< of the key of connections to a gateway that is not activated */
} engr_client_options;

/** Handle of one gateway, of a listener, or for provisioning. */
typedef struct engr_client engr_client;

/**
 * Opens a client of one gateway and starts to connect; whether that works is an event.
 *
 * @param options  what to connect to
 * @param client   receives the handle, which the caller closes; NULL unless the result is OK
 * @return OK; BAD_ARGUMENT when a pointer is NULL, `size` is 0, the address is missing, or a key or
 *         seed has not 16 bytes; NO_RESOURCES
 */
engr_client_error engr_client_open_gateway(const engr_client_options *options,
                                           engr_client **client);

/**
 * Opens a client that listens for announcements on UDP port 6667, beside other listeners.
 *
 * @return OK; NO_INTERFACE; UNREACHABLE when the port is in use by one who does not share it;
 *         BAD_ARGUMENT and NO_RESOURCES as above
 */
engr_client_error engr_client_open_discovery(const engr_client_options *options,
                                             engr_client **client);

/**
 * Opens a client that gives gateways in access-point mode their Wi-Fi network. It opens no port
 * before engr_client_provision.
 *
 * @return OK; BAD_ARGUMENT and NO_RESOURCES as above
 */
engr_client_error engr_client_open_provisioning(const engr_client_options *options,
                                                engr_client **client);

/**
 * Ends the client: its connection is closed, its thread has ended, its descriptor is closed, and
 * events that were not taken are gone. Events that were taken stay valid. NULL is nothing.
 */
void engr_client_close(engr_client *client);

/**
 * @return a descriptor that is readable while an event waits. It belongs to the client: wait for
 *         it, but don't read or close it.
 */
int engr_client_descriptor(const engr_client *client);

/**
 * Takes the oldest event. Never waits.
 *
 * @return an event that the caller frees; NULL when none waits
 */
engr_client_event *engr_client_next_event(engr_client *client);

/** Frees an event and all that it points to. NULL is nothing. */
void engr_client_free_event(engr_client_event *event);

/**
 * Makes a request to a gateway. Several may be under way; each yields one ENGR_CLIENT_ANSWER. The
 * payload is encrypted if the frame type wants it.
 *
 * @param type        number of the frame type
 * @param payload     JSON text, or what the type takes; may be NULL when payload_bytes is 0
 * @param timeout_ms  for the answer; 0: that of the options
 * @param request     receives the request's id, never 0; may be NULL
 * @return OK; BAD_ARGUMENT for a NULL pointer or a client that is none of a gateway; QUEUE_FULL
 *         when 4096 answers have not been taken; NO_RESOURCES. Without OK there is no answer.
 */
engr_client_error engr_client_request(engr_client *client, uint32_t type, const char *payload,
                                      size_t payload_bytes, uint32_t timeout_ms, uint32_t *request);

/**
 * Asks a gateway for its devices and their online state, by two requests.
 *
 * @param timeout_ms  for each answer; 0: that of the options
 * @param request     as of engr_client_request. The payload of the ENGR_CLIENT_ANSWER is a JSON
 *                    text [{"cid": ID, "pid": PRODUCT, "online": true, false, or null for a device
 *                    that the gateway keeps in neither list}]; its error may be BAD_ANSWER.
 * @return as engr_client_request
 */
engr_client_error engr_client_devices(engr_client *client, uint32_t timeout_ms, uint32_t *request);

/**
 * Fetches a gateway's log, which the gateway removes by this; other apps are held up meanwhile.
 *
 * @param request  as of engr_client_request. The payload of the ENGR_CLIENT_ANSWER is the log, and
 *                 ENGR_CLIENT_PROGRESS counts its bytes. With the error ANSWER_TOO_LONG the gateway
 *                 was too slow for any log, and the connection is closed.
 * @return as engr_client_request
 */
engr_client_error engr_client_log(engr_client *client, uint32_t *request);

/**
 * Brings a firmware image to a gateway, or to one of its devices, and waits until it is installed.
 * An upgrade that the gateway gives up is started once more, since the end of any app's connection
 * ends it; with `reconnect` also one whose own connection was lost. To end an upgrade, close the
 * client; after an error, too, it may go on at the gateway until then. What is installed can be
 * asked only by what also withdraws an image that another app has announced and not started.
 *
 * @param path       of the image, a regular file of 1 byte to 2 GiB that stays as it is
 * @param version    of the image, 1 to 11 bytes
 * @param device_id  of the device, at most 25 bytes; NULL or "": the gateway itself
 * @param again      install it even when that version is installed already
 * @param request    as of engr_client_request. ENGR_CLIENT_PROGRESS counts bytes that the gateway
 *                   has taken. The payload of the ENGR_CLIENT_ANSWER is a JSON text
 *                   {"version_before": TEXT, "version": TEXT, "upgraded": BOOL}, with "version"
 *                   installed in the end, "" where one is not known, and with an error of the
 *                   upgrade, too; with a `ret` other than 0 it is the gateway's refusal. Errors:
 *                   BUSY, UNKNOWN_DEVICE, UPGRADE_FAILED, OUTCOME_UNKNOWN, CONNECTION_LOST,
 *                   TIMED_OUT when the gateway does not ask for the next piece, BAD_ANSWER, and
 *                   what ends other requests.
 * @return as engr_client_request; BAD_ARGUMENT also for a version or a file that can't be used
 */
engr_client_error engr_client_upgrade(engr_client *client, const char *path, const char *version,
                                      const char *device_id, bool again, uint32_t *request);

/** A Wi-Fi network and who is to join it. What is 0 or NULL has the value that its line names. */
typedef struct engr_client_network {
    size_t size;                    /**< sizeof(engr_client_network), so that it can grow */
    const char *network;            /**< its name, 1 to 32 bytes; must be given */
    const char *password;           /**< NULL or "": the network is open */
    const char *token;              /**< what the gateway expects; must be given */
    const char *gateway_id;         /**< NULL: the gateways that say that they need Wi-Fi */
    const char *address;            /**< IPv4, where it is sent; NULL: broadcast */
    const char *new_interface_name; /**< where the gateway is to appear; NULL: as in the options */
    bool plain;          /**< unencrypted: anybody near can read it; else with built-in key 1 */
    bool force;          /**< send it even when no gateway says that it needs Wi-Fi */
    uint32_t times;      /**< 10; it is sent every second, since datagrams get lost */
    uint32_t listen_ms;  /**< 6000; how long to listen for the gateway before it is sent */
    uint32_t timeout_ms; /**< 60000; for the outcome, once it was sent */
} engr_client_network;

/**
 * Gives a gateway in access-point mode its Wi-Fi network. First it listens for gateways that say
 * that they need one, and sends only to where it has heard the one that is meant: a password is for
 * nobody else. Then it sends until a gateway reports that it could not join the network, or
 * appears on it. No gateway answers.
 *
 * @param client   of engr_client_open_provisioning
 * @param wanted   what to send and where; read only during the call
 * @param request  as of engr_client_request. ENGR_CLIENT_PROGRESS counts the datagrams. The
 *                 ENGR_CLIENT_ANSWER sets announcement and address when the gateway has joined, and
 *                 with the error UNCONFIRMED; with WIFI_FAILURE it sets address, result and payload
 *                 (the reason). Further errors: NOT_WAITING; NO_INTERFACE, also when none is named
 *                 and it is not clear where to broadcast; BAD_ADDRESS; UNREACHABLE, also for a port
 *                 in use; WRONG_KEY when all that was heard is under other keys; TIMED_OUT; BUSY
 * @return OK; BAD_ARGUMENT for a missing text, one that is not UTF-8, a name that is too long, or a
 *         client of another kind; TOO_LARGE when all together don't fit into a datagram of 256
 *         bytes; QUEUE_FULL; NO_RESOURCES
 */
engr_client_error engr_client_provision(engr_client *client, const engr_client_network *wanted,
                                        uint32_t *request);

/** @return a short name such as "timed_out", valid for ever; "unknown" for other numbers */
const char *engr_client_error_name(engr_client_error error);

/**
 * @param name  such as "FRM_DEV_LIST" or "dev_list", in any letter case
 * @return the number of the frame type; 0 when there is none
 */
uint32_t engr_client_frame_type(const char *name);

/** @return such as "FRM_DEV_LIST", valid for ever; NULL for a number without a name */
const char *engr_client_frame_type_name(uint32_t type);

/** @return what to expect after a request of this type */
engr_client_answer_rule engr_client_answer_rule_of(uint32_t type);

#ifdef __cplusplus
}
#endif
