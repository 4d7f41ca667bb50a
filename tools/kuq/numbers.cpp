// numbers.cpp - full blocks go behind the cache's rows, the last one waits in memory

#include "numbers.h"

#include <kudcm.h>

#include <cstring>
#include <utility>

namespace kuq
{
namespace
{

constexpr size_t block_numbers = 1024;
constexpr uint32_t block_bytes = block_numbers * sizeof(int32_t);

} // namespace

void numbers::clear()
{
    size_ = 0;
    last_.clear();
    which_ = SIZE_MAX;
}

void numbers::swap(numbers &other) { std::swap(*this, other); }

bool numbers::append(int32_t number)
{
    const size_t block = size_ / block_numbers;
    last_.push_back(number);
    size_++;
    if (last_.size() < block_numbers) return true;
    if (block == positions_.size()) positions_.push_back(KUDC_NONE);
    const bool well = kudcmsfpblb(*cache_, last_.data(), block_bytes, &positions_[block]) == 0;
    last_.clear();
    return well;
}

bool numbers::at(uint64_t index, int32_t *number)
{
    const size_t block = index / block_numbers;
    const size_t place = index % block_numbers;
    if (index >= size_ - last_.size()) {
        *number = last_[place];
        return true;
    }
    if (block != which_) {
        which_ = SIZE_MAX;
        void *copy = nullptr;
        uint32_t length = 0;
        if (kudcmrfpblb(*cache_, positions_[block], &copy, &length) != 0) return false;
        read_.resize(block_numbers);
        std::memcpy(read_.data(), copy, block_bytes);
        kux *ctx = (*cache_)->kuxp_kudcacc;
        ctx->kuxnmfree(ctx, copy);
        which_ = block;
    }
    *number = read_[place];
    return true;
}

} // namespace kuq
