#include <zorv/sha256.h>

#include <algorithm>
#include <atomic>

#include "crypto/bytes.h"
#include "crypto/sha256_impl.h"

using namespace zorv;

static_assert(sizeof(sha256_ctx) == 168 && offsetof(sha256_ctx, len) == 4 &&
              offsetof(sha256_ctx, block) == 8 && offsetof(sha256_ctx, h) == 136);

namespace {

constexpr uint32_t kInitial[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                  0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

constexpr uint32_t kPadding = 1 + 8; // bytes at least: 0x80 and the bit count

// The form in use, chosen by the first call; threads that race for it choose the same.
constinit std::atomic<Sha256Compress *> g_compress = nullptr;

Sha256Compress *choose_compress()
{
    Sha256Compress *hardware = sha256_hardware();
    Sha256Compress *compress = hardware ? hardware : sha256_compress_portable;
    g_compress.store(compress, std::memory_order_relaxed);
    return compress;
}

void compress(sha256_ctx *ctx, const uint8_t *blocks, size_t count)
{
    Sha256Compress *chosen = g_compress.load(std::memory_order_relaxed);
    (chosen ? chosen : choose_compress())(ctx->h, blocks, count);
}

// Pads the message in the context's block; returns how many blocks its end takes.
size_t pad(sha256_ctx *ctx)
{
    const size_t blocks = (ctx->len + kPadding + kSha256Block - 1) / kSha256Block;
    // Zeros behind the data, in pieces of fixed size: one of any size takes longer than the rest.
    memset(ctx->block + ctx->len, 0, kSha256Block);
    memset(ctx->block + kSha256Block, 0, kSha256Block);
    ctx->block[ctx->len] = 0x80;
    // On purpose: the low 32 bits of the bit count only, so digests of 512 MiB and more are not the
    // standard's; kept for callers built against it.
    store_be32(ctx->block + blocks * kSha256Block - sizeof(uint32_t), (ctx->tot_len + ctx->len)
                                                                          << 3);
    return blocks;
}

void write_digest(const sha256_ctx *ctx, uint8_t *digest)
{
    for (size_t i = 0; i < 8; ++i)
        store_be32(digest + sizeof(uint32_t) * i, ctx->h[i]);
}

} // namespace

void sha256_init(sha256_ctx *ctx)
{
    ctx->tot_len = 0;
    ctx->len = 0;
    memcpy(ctx->h, kInitial, sizeof ctx->h);
}

void sha256_update(sha256_ctx *ctx, const uint8_t *msg, unsigned int len)
{
    if (len == 0)
        return;
    if (ctx->len != 0) {
        const unsigned taken = std::min(len, kSha256Block - ctx->len);
        memcpy(ctx->block + ctx->len, msg, taken);
        ctx->len += taken;
        if (ctx->len < kSha256Block)
            return;
        compress(ctx, ctx->block, 1);
        ctx->tot_len += kSha256Block;
        ctx->len = 0;
        msg += taken;
        len -= taken;
    }
    if (const unsigned blocks = len / kSha256Block) {
        compress(ctx, msg, blocks);
        ctx->tot_len += blocks * kSha256Block;
    }
    ctx->len = len % kSha256Block;
    memcpy(ctx->block, msg + (len - ctx->len), ctx->len);
}

void sha256_final(sha256_ctx *ctx, uint8_t digest[32])
{
    compress(ctx, ctx->block, pad(ctx));
    write_digest(ctx, digest);
}

void sha256(const uint8_t *msg, unsigned int len, uint8_t digest[32])
{
    sha256_ctx ctx;
    sha256_init(&ctx);
    const size_t blocks = len / kSha256Block;
    ctx.len = len % kSha256Block;
    ctx.tot_len = len - ctx.len;
    if (ctx.len != 0)
        memcpy(ctx.block, msg + ctx.tot_len, ctx.len);
    // The end is put together first: by the time it is read, its bytes have reached the cache.
    const size_t last_blocks = pad(&ctx);
    if (blocks != 0)
        compress(&ctx, msg, blocks);
    compress(&ctx, ctx.block, last_blocks);
    write_digest(&ctx, digest);
}
