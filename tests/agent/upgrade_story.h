/* An upgrade service that records its calls and acts as a test wishes, in the place of the
 * reference gateway's own. */
#pragma once

#include "story_gateway.h"

#include <deque>
#include <functional>

struct recording_service;

/** One transfer of the service: what its callbacks are given. */
struct started_transfer {
    recording_service *service;
    std::string outcomes; /**< its outcomes, one character each */
};

/** Calls of the service, and what it does. */
struct recording_service {
    std::vector<std::string>
        calls; /**< "offer KIND VERSION SIZE MD5", "chunk OFFSET+LENGTH", "outcome R" */
    int32_t offer_result = 0;
    bool starts_transfer = true;
    uint32_t chunk_size = 4;
    uint32_t rpt_percent = 0;
    int chunk_result = 0;
    uint32_t remain_len = 0;
    std::function<void()> in_chunk;
    std::function<void(int result)> in_outcome;

    /** How many outcomes were reported. */
    [[nodiscard]] size_t outcomes() const;
    /** All calls so far, separated by "; "; clears them. */
    std::string take_calls();
    /** Starts a transfer for what was offered last. */
    int32_t start_transfer(const char *dev_id = nullptr);
    /** Outcome of each transfer, in the order of their starts: "0", "1", "-" for none,
     * separated by blanks. */
    [[nodiscard]] std::string outcome_of_each() const;

    lan_fw_info_t offered = {};
    std::deque<started_transfer> transfers;
};

/** The service that the gateway record's callbacks lead to. */
extern recording_service service;

/** A gateway whose upgrade service is the recording one, fresh. */
struct upgrade_gateway : story_gateway {
    explicit upgrade_gateway(sim::world &world);
};

/** An image chunk's payload. */
std::string chunk(uint32_t offset, std::string_view bytes);
/** Announces an image of the gateway; returns the answer. */
std::string announce(story_app &app, uint32_t size, const char *version = "2.0.1");
/** Announces an image and starts its upgrade; returns the first chunk request. */
std::string begin_upgrade(story_app &app, uint32_t size);
