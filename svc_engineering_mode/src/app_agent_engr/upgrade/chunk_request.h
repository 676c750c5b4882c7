/* The gateway's requests for pieces of a firmware image. */
#pragma once

#include "base/bounded_text.h"

#include <cstdint>

/** One request to the app that drives the upgrade. */
class chunk_request {
  public:
    /**
     * @param cid     device whose image is transferred
     * @param offset  of the first byte wanted
     * @param size    bytes wanted; 0: the image is complete
     */
    chunk_request(const char *cid, uint32_t offset, uint32_t size);
    [[nodiscard]] const char *text() { return text_->text(); }
    /**
     * Sends it; the caller is inside the agent.
     *
     * @return as __mlp_gw_tcp_send
     */
    int32_t send();

  private:
    local_text<128> text_;
};
