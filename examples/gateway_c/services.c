/*
 * Every service that the agent asks of a gateway, in the smallest form that an app can work with:
 * one gateway and two lamps in memory, each with one data point "1". Nothing lasts, and a firmware
 * is checked and dropped.
 */
#include "services.h"

#include "engr_lan_agent.h"
#include "gateway/config.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "gateway/group.h"
#include "gateway/records.h"
#include "gateway/scene.h"
#include "platform/crypto.h"
#include "platform/memory.h"

#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LAMPS = 2, FAILED = -1 };

/** A device as this gateway knows it; the agent sees the beginning. */
struct lamp {
    dev_cntl_t device;
    atomic_bool is_on;
};

static struct lamp lamps[LAMPS];
static gw_cntl_t gateway;
static dev_cntl_t own_device;
static atomic_int channel = 11;
static atomic_uchar extended_state;

/* ---- devices and data points ---- */

gw_cntl_t *engr_get_gw_cntl(void) {
    return &gateway;
}

dev_cntl_t *engr_get_gw_dev_cntl(void) {
    return &own_device;
}

dev_cntl_t *engr_get_dev_cntl(const char *dev_id) {
    dev_cntl_t *found = NULL;
    kelo_hal_mutex_lock(gateway.dev_mutex);
    for (dev_cntl_t *one = gateway.dev_list; one != NULL && found == NULL; one = one->next) {
        found = strcmp(one->dev_id, dev_id) == 0 ? one : NULL;
    }
    kelo_hal_mutex_unlock(gateway.dev_mutex);
    return found;
}

/** The lamp of an id that may be absent; null when there is none. */
static struct lamp *find_lamp(const cJSON *cid) {
    dev_cntl_t *device = cJSON_IsString(cid) ? engr_get_dev_cntl(cid->valuestring) : NULL;
    return (struct lamp *)(void *)device; /* its first member */
}

char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *device, int32_t dp_id, int32_t type, int32_t mode,
                                     int32_t filter, int32_t full) {
    enum { TEXT_SIZE = 80 };
    (void)dp_id, (void)type, (void)mode, (void)filter, (void)full;
    if (device == &own_device) {
        return NULL; /* it has no data points */
    }
    const struct lamp *lamp = (const struct lamp *)(const void *)device;
    char *text = Malloc(TEXT_SIZE);
    if (text != NULL) {
        snprintf(text, TEXT_SIZE, "{\"cid\":\"%s\",\"dps\":{\"1\":%s}}", device->dev_id,
                 atomic_load(&lamp->is_on) ? "true" : "false");
    }
    return text;
}

static void report(struct lamp *lamp) {
    union { /* room for the text behind the block's head */
        lan_dp_report_t report;
        char bytes[sizeof(lan_dp_report_t) + 80];
    } block = {.report = {0, 0}};
    char *text = engr_sf_pack_local_obj_dp_data(&lamp->device, -1, 1, 0, 1, 1);
    if (text != NULL) {
        const size_t size = strlen(text) + 1;
        memcpy(block.bytes + sizeof(lan_dp_report_t), text, size);
        (void)engr_lan_dp_sata_report(&block.report, (uint32_t)(sizeof(lan_dp_report_t) + size));
        Free(text);
    }
}

int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *command) {
    struct lamp *lamp = find_lamp(cJSON_GetObjectItem(command->root, "cid"));
    const cJSON *value = cJSON_GetObjectItem(cJSON_GetObjectItem(command->root, "dps"), "1");
    if (lamp == NULL || !cJSON_IsBool(value)) {
        return FAILED;
    }
    atomic_store(&lamp->is_on, cJSON_IsTrue(value) != 0);
    report(lamp);
    cJSON_Delete(command->root);
    return 0;
}

int32_t engr_sf_respone_obj_dp_query(cJSON *cid, cJSON *dp_id) {
    struct lamp *lamp = find_lamp(cid);
    (void)dp_id;
    if (lamp == NULL) {
        return FAILED;
    }
    report(lamp);
    return 0;
}

int32_t engr_gw_unbind_device_inner(dev_cntl_t *device) {
    kelo_hal_mutex_lock(gateway.dev_mutex);
    dev_cntl_t **link = &gateway.dev_list;
    while (*link != NULL && *link != device) {
        link = &(*link)->next;
    }
    if (*link != NULL) {
        *link = device->next; /* the record stays readable */
        --gateway.dev_count;
    }
    kelo_hal_mutex_unlock(gateway.dev_mutex);
    return engr_lan_sub_dev_unbind_report(device->dev_id);
}

int32_t engr_pack_data_with_cmd(uint8_t mode, const char *text, uint32_t flags, uint32_t pack_arg,
                                uint8_t **output, uint32_t *output_length) {
    uint8_t key[AES128_KEY_SIZE];
    (void)mode, (void)flags, (void)pack_arg;
    (void)engr_lan_get_tcp_key(key); /* fails only without room for the key */
    return aes128_ecb_encode((const uint8_t *)text, (uint32_t)strlen(text), output, output_length,
                             key);
}

int32_t engr_parse_data_with_cmd(uint8_t mode, const uint8_t *payload, uint32_t length,
                                 char **text) {
    uint8_t key[AES128_KEY_SIZE];
    uint8_t *plain = NULL;
    uint32_t plain_length = 0;
    (void)mode;
    (void)engr_lan_get_tcp_key(key);
    const int32_t result = aes128_ecb_decode(payload, length, &plain, &plain_length, key);
    if (result == 0) {
        *text = (char *)plain;
    }
    return result;
}

/* ---- the gateway ---- */

uint8_t engr_get_gw_ext_stat(void) {
    return atomic_load(&extended_state);
}

void engr_set_gw_ext_stat(uint8_t state) {
    atomic_store(&extended_state, state);
}

int32_t engr_gw_user_token_bind(const char *token) {
    return token[0] != '\0' ? 0 : FAILED;
}

int32_t gw_wifi_modify_and_conn(const char *ssid, const char *password) {
    (void)ssid, (void)password;
    return FAILED; /* it is wired */
}

int32_t engr_gw_unactive(const uint8_t *reset_type) {
    (void)reset_type;
    return FAILED; /* it has no key but its own */
}

int32_t gw_engineer_add_sub_dev_to_list(const char *payload, uint32_t length) {
    (void)payload, (void)length;
    return FAILED; /* its devices are what they are */
}

int32_t engr_gw_cntl_init_local(int32_t *told) {
    *told = atomic_load(&channel);
    return 0;
}

static int32_t permit_join(uint8_t kind, bool enable, uint32_t time_s) {
    printf("joining: kind %u, %s, %u s\n", kind, enable ? "open" : "closed", (unsigned)time_s);
    fflush(stdout);
    return 1;
}

/* ---- configuration ---- */

const char *get_config_path(void) {
    return "./";
}

int32_t wd_common_write(const char *key, const uint8_t *value, uint32_t length) {
    (void)key, (void)value, (void)length;
    return 0;
}

int32_t gw_engineer_sync_default_config(void) {
    return 0;
}

int32_t gw_read_file(const char *path, char **text) {
    enum { SIZE_MAX_READ = 65536 };
    FILE *file = fopen(path, "r");
    char *read = file != NULL ? malloc(SIZE_MAX_READ) : NULL;
    if (read != NULL) {
        read[fread(read, 1, SIZE_MAX_READ - 1, file)] = '\0';
        *text = read;
    }
    if (file != NULL) {
        fclose(file);
    }
    return read != NULL ? 0 : FAILED;
}

int32_t gw_set_channel(const char *payload, uint32_t length) {
    (void)length;
    cJSON *request = cJSON_Parse(payload);
    const cJSON *wanted = cJSON_GetObjectItem(request, "channel");
    const int number = cJSON_IsNumber(wanted) ? wanted->valueint : 0;
    cJSON_Delete(request);
    if (number < 11 || number > 26) {
        return FAILED;
    }
    atomic_store(&channel, number);
    return 0;
}

int32_t gw_get_channel(int32_t *told) {
    *told = atomic_load(&channel);
    return 0;
}

/* ---- firmware: taken chunk by chunk, and dropped ---- */

static int take_chunk(lan_fw_info_t *firmware, uint32_t total_size, uint32_t offset,
                      const uint8_t *data, uint32_t length, uint32_t *remain_len, void *argument) {
    (void)firmware, (void)data, (void)remain_len, (void)argument;
    return offset <= total_size && length <= total_size - offset ? 0 : FAILED;
}

static int end_upgrade(lan_fw_info_t *firmware, int result, void *argument) {
    (void)argument;
    printf("firmware %s: %s\n", firmware->sw_ver, result == 0 ? "received" : "failed");
    fflush(stdout);
    return 0;
}

static int32_t offer_gateway_firmware(lan_fw_info_t *firmware) {
    return lan_gw_start_upgrade(NULL, firmware, take_chunk, NULL, end_upgrade, 1, 0);
}

static int32_t offer_device_firmware(const char *dev_id, lan_fw_info_t *firmware) {
    return engr_get_dev_cntl(dev_id) == NULL
               ? FAILED
               : lan_gw_start_upgrade(dev_id, firmware, take_chunk, NULL, end_upgrade, 1, 0);
}

/* ---- groups and scenes: this gateway has none ---- */

int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *command) {
    (void)command;
    return FAILED;
}

int32_t engr_sf_send_scene_oper_cmd(sf_cmd_t *command) {
    (void)command;
    return FAILED;
}

int32_t engr_sf_send_scene_panel_cmd(sf_cmd_t *command) {
    (void)command;
    return FAILED;
}

int32_t scene_linkage_scene_exe(const char *scene_id) {
    (void)scene_id;
    return FAILED;
}

int32_t engr_check_modify_time_changed(int32_t modified) {
    (void)modified;
    return 0; /* never newer than what is stored */
}

int32_t engr_reset_scene_info_to_disk(void) {
    return 0;
}

int32_t engr_save_scene_link(int32_t total, int32_t modified, cJSON *request) {
    (void)total, (void)modified, (void)request;
    return FAILED;
}

int32_t engr_load_scene_info_from_disk(void) {
    return 0;
}

int32_t engr_scene_linkage_module_reinit(void) {
    return 0;
}

/* ---- the beginning ---- */

int gateway_begin(void) {
    if (kelo_hal_mutex_create_init(&gateway.dev_mutex) != 0 ||
        kelo_hal_mutex_create_init(&gateway.field_mutex) != 0) {
        return FAILED;
    }
    for (int i = 0; i < LAMPS; ++i) {
        dev_cntl_t *device = &lamps[i].device;
        snprintf(device->dev_id, sizeof device->dev_id, "lamp-%d", i + 1);
        snprintf(device->sw_ver, sizeof device->sw_ver, "1.0.0");
        snprintf(device->pid, sizeof device->pid, "lamp");
        device->state = DEV_STATE_BOUND;
        device->online = 1;
        device->next = gateway.dev_list;
        gateway.dev_list = device;
        ++gateway.dev_count;
    }
    snprintf(own_device.dev_id, sizeof own_device.dev_id, "gateway-c");
    snprintf(gateway.gw_id, sizeof gateway.gw_id, "gateway-c");
    snprintf(gateway.gw_sw_ver, sizeof gateway.gw_sw_ver, "1.0.0");
    snprintf(gateway.disc_version, sizeof gateway.disc_version, "1.0");
    snprintf(gateway.product_key, sizeof gateway.product_key, "gateway-c");
    memcpy(gateway.local_key, "0123456789abcdef", GW_LOCAL_KEY_SIZE);
    gateway.active_stat = GW_ACTIVATED;
    gateway.gw_lan_ug_cb = offer_gateway_firmware;
    gateway.dev_lan_ug_cb = offer_device_firmware;
    gateway.permit_join = permit_join;
    return 0;
}
