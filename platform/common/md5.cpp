/* MD5 over nettle, its state inside the contract's opaque context. */
#include "platform/crypto.h"

#include <nettle/md5.h>

#include <new>

static_assert(sizeof(md5_ctx) <= sizeof(uni_md5_context_t) &&
              alignof(md5_ctx) <= alignof(uni_md5_context_t));

namespace {

md5_ctx *state(uni_md5_context_t *context) {
    return std::launder(reinterpret_cast<md5_ctx *>(context));
}

} // namespace

void uni_md5_init(uni_md5_context_t *context) {
    md5_init(new (context) md5_ctx);
}

void uni_md5_update(uni_md5_context_t *context, const uint8_t *bytes, uint32_t length) {
    md5_update(state(context), length, bytes);
}

void uni_md5_final(uni_md5_context_t *context, uint8_t digest[MD5_DIGEST_SIZE]) {
    md5_digest(state(context), MD5_DIGEST_SIZE, digest);
}
