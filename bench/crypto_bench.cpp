// Speed of the port's cipher and checksum, each beside its library's own (key schedule included)
// and, for the checksum, beside zlib's.
#include "platform/crypto.h"
#include "platform/memory.h"

#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <nettle/aes.h>
#include <zlib.h>

#include <vector>

namespace {

constexpr uint8_t key[AES128_KEY_SIZE] = {1, 2, 3};

std::vector<uint8_t> input_of(const benchmark::State &state) {
    return std::vector<uint8_t>(static_cast<size_t>(state.range(0)), 'x');
}

void finish(benchmark::State &state) {
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void encrypt_port(benchmark::State &state) {
    const std::vector<uint8_t> input = input_of(state);
    for (auto _ : state) {
        uint8_t *output = nullptr;
        uint32_t size = 0;
        aes128_ecb_encode(input.data(), static_cast<uint32_t>(input.size()), &output, &size, key);
        benchmark::DoNotOptimize(output);
        Free(output);
    }
    finish(state);
}

void encrypt_nettle(benchmark::State &state) {
    std::vector<uint8_t> input = input_of(state);
    const size_t padded = (input.size() / AES_BLOCK_SIZE + 1) * AES_BLOCK_SIZE;
    input.resize(padded); // with the padding, as the port encrypts it
    std::vector<uint8_t> output(padded);
    for (auto _ : state) {
        aes128_ctx context;
        aes128_set_encrypt_key(&context, key);
        aes128_encrypt(&context, padded, output.data(), input.data());
        benchmark::DoNotOptimize(output.data());
    }
    finish(state);
}

void decrypt_port(benchmark::State &state) {
    const std::vector<uint8_t> plain(static_cast<size_t>(state.range(0) - 1), 'x');
    uint8_t *cipher = nullptr;
    uint32_t cipher_size = 0;
    aes128_ecb_encode(plain.data(), static_cast<uint32_t>(plain.size()), &cipher, &cipher_size,
                      key);
    for (auto _ : state) {
        uint8_t *output = nullptr;
        uint32_t size = 0;
        aes128_ecb_decode(cipher, cipher_size, &output, &size, key);
        benchmark::DoNotOptimize(output);
        Free(output);
    }
    Free(cipher);
    finish(state);
}

void decrypt_nettle(benchmark::State &state) {
    const std::vector<uint8_t> input = input_of(state);
    std::vector<uint8_t> output(input.size());
    for (auto _ : state) {
        aes128_ctx context;
        aes128_set_decrypt_key(&context, key);
        aes128_decrypt(&context, input.size(), output.data(), input.data());
        benchmark::DoNotOptimize(output.data());
    }
    finish(state);
}

void checksum_port(benchmark::State &state) {
    const std::vector<uint8_t> input = input_of(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            hash_crc32i_total(input.data(), static_cast<uint16_t>(input.size())));
    }
    finish(state);
}

void checksum_libdeflate(benchmark::State &state) {
    const std::vector<uint8_t> input = input_of(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(libdeflate_crc32(0, input.data(), input.size()));
    }
    finish(state);
}

void checksum_zlib(benchmark::State &state) {
    const std::vector<uint8_t> input = input_of(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, input.data(), static_cast<uInt>(input.size())));
    }
    finish(state);
}

BENCHMARK(encrypt_port)->Arg(64)->Arg(2096)->Arg(524288);
BENCHMARK(encrypt_nettle)->Arg(64)->Arg(2096)->Arg(524288);
BENCHMARK(decrypt_port)->Arg(64)->Arg(2096)->Arg(524288);
BENCHMARK(decrypt_nettle)->Arg(64)->Arg(2096)->Arg(524288);
BENCHMARK(checksum_port)->Arg(28)->Arg(2124)->Arg(65535);
BENCHMARK(checksum_libdeflate)->Arg(28)->Arg(2124)->Arg(65535);
BENCHMARK(checksum_zlib)->Arg(28)->Arg(2124)->Arg(65535);

} // namespace

BENCHMARK_MAIN();
