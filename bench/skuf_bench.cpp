// skuf_bench.cpp - moves through a paged file, beside a plain page cache over pread and pwrite

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kux.h"
#include "ratio.h"
#include "skuf.h"
#include "skufv.h"

namespace
{

constexpr std::uint32_t file_size = 64u << 20; // bytes
constexpr std::uint32_t page_size = 4096;      // bytes
constexpr std::uint32_t npages = 15;           // of either cache
constexpr std::uint32_t longest = 3000;        // bytes of a move
constexpr std::uint32_t reach = 8192;          // bytes that a local move goes away at most
constexpr int nmoves = 200000;

struct request {
    std::uint32_t position;
    std::uint32_t length;
    bool writes;
};

// The same moves for both sides: anywhere, or near the one before.
const std::vector<request> &requests(bool local)
{
    const auto draw = [](bool near) {
        std::mt19937 random(1);
        std::vector<request> all;
        std::uint32_t at = file_size / 2;
        for (int i = 0; i < nmoves; i++) {
            if (near)
                at = std::clamp<std::uint32_t>(at + random() % (2 * reach) - reach, reach,
                                               file_size - longest - reach);
            else
                at = static_cast<std::uint32_t>(random() % (file_size - longest));
            all.push_back(
                {at, static_cast<std::uint32_t>(1 + random() % longest), random() % 2 == 0});
        }
        return all;
    };
    static const std::vector<request> anywhere = draw(false);
    static const std::vector<request> nearby = draw(true);
    return local ? nearby : anywhere;
}

const char *directory()
{
    const char *given = std::getenv("TMPDIR");
    return given != nullptr ? given : "/tmp";
}

// ---- the peer: least recently used first, in an array of pages ----

class page_cache
{
public:
    page_cache()
    {
        std::string name = std::string(directory()) + "/ku_pages_XXXXXX";
        descriptor_ = mkstemp(name.data());
        if (descriptor_ < 0) std::abort();
        unlink(name.c_str());
    }
    page_cache(const page_cache &) = delete;
    page_cache &operator=(const page_cache &) = delete;
    ~page_cache() { close(descriptor_); }

    void move(std::uint32_t position, unsigned char *bytes, std::uint32_t length, bool writes)
    {
        while (length != 0) {
            const std::uint32_t offset = position % page_size;
            const std::uint32_t piece = std::min(length, page_size - offset);
            page &held = fetch(position / page_size);
            if (writes)
                std::memcpy(held.bytes + offset, bytes, piece);
            else
                std::memcpy(bytes, held.bytes + offset, piece);
            held.dirty = held.dirty || writes;
            position += piece;
            bytes += piece;
            length -= piece;
        }
    }

private:
    struct page {
        std::uint32_t number = UINT32_MAX;
        bool dirty = false;
        std::uint64_t used = 0;
        alignas(64) unsigned char bytes[page_size];
    };

    page &fetch(std::uint32_t number)
    {
        page *oldest = &pages_[0];
        for (page &each : pages_) {
            if (each.number == number) {
                each.used = ++clock_;
                return each;
            }
            if (each.used < oldest->used) oldest = &each;
        }
        transfer(*oldest, number);
        return *oldest;
    }

    void transfer(page &into, std::uint32_t number)
    {
        if (into.dirty
            && pwrite(descriptor_, into.bytes, page_size, off_t{into.number} * page_size) < 0)
            std::abort();
        if (pread(descriptor_, into.bytes, page_size, off_t{number} * page_size) < 0) std::abort();
        into.number = number;
        into.dirty = false;
        into.used = ++clock_;
    }

    int descriptor_;
    std::uint64_t clock_ = 0;
    std::array<page, npages> pages_;
};

// Fills the file and carries the moves out once before the time is taken.
template <typename Move> void measure(benchmark::State &state, bool local, Move move)
{
    const std::vector<request> &moves = requests(local);
    std::vector<unsigned char> bytes(1 << 20, 'x');
    for (std::uint32_t at = 0; at < file_size; at += bytes.size())
        move(at, bytes.data(), static_cast<std::uint32_t>(bytes.size()), true);
    const auto all = [&] {
        for (const request &each : moves)
            move(each.position, bytes.data(), each.length, each.writes);
    };
    all();
    for (auto _ : state) all();
    state.SetItemsProcessed(state.iterations() * nmoves);
}

void BM_skufvmove(benchmark::State &state, bool local)
{
    kux *ctx = kuxcreate(nullptr);
    void *cache = skufcreate(ctx, npages);
    const std::string name = std::string(directory()) + "/ku_paged_" + std::to_string(getpid());
    auto *file = static_cast<skufv *>(skufvopen(ctx, cache, name.c_str(), SKUF_SCRATCH));
    if (file == nullptr) std::abort();
    measure(state, local,
            [=](std::uint32_t position, unsigned char *bytes, std::uint32_t length, bool writes) {
                file->skufvpos = position;
                if (skufvmove(ctx, cache, file, bytes, length, writes ? SKUFV_PUT : SKUFV_GET) != 0)
                    std::abort();
            });
    skufvclose(ctx, cache, file);
    skufdestroy(ctx, cache);
    kuxdestroy(ctx);
}
BENCHMARK_CAPTURE(BM_skufvmove, uniform, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_skufvmove, local, true)->Unit(benchmark::kMillisecond);

void BM_page_cache(benchmark::State &state, bool local)
{
    page_cache cache;
    measure(state, local,
            [&](std::uint32_t position, unsigned char *bytes, std::uint32_t length, bool writes) {
                cache.move(position, bytes, length, writes);
            });
}
BENCHMARK_CAPTURE(BM_page_cache, uniform, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_page_cache, local, true)->Unit(benchmark::kMillisecond);

KU_RATIO("200,000 moves anywhere in a 64 MB paged file", "BM_skufvmove/uniform",
         "BM_page_cache/uniform", 1.5, 5.0);
KU_RATIO("200,000 local moves in a 64 MB paged file", "BM_skufvmove/local", "BM_page_cache/local",
         1.2, 2.0);

} // namespace
