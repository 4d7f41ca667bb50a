// numbers.h - a long list of numbers in a data cache's file: a block of it is in memory
#ifndef KUQ_NUMBERS_H
#define KUQ_NUMBERS_H

#include <kudcdef.h>

#include <cstdint>
#include <vector>

namespace kuq
{

class numbers
{
public:
    // Of a cache, which is made later and lives longer.
    explicit numbers(kudcaccdef *const *cache) : cache_(cache) {}

    uint64_t size() const { return size_; }
    void clear(); // its blocks are written over from now on
    void swap(numbers &other);

    // False with the reason pushed, as the next one.
    bool append(int32_t number);
    bool at(uint64_t index, int32_t *number);

private:
    kudcaccdef *const *cache_;
    uint64_t size_ = 0;
    std::vector<int32_t> positions_; // of the blocks
    std::vector<int32_t> last_;      // block, which is not written yet
    std::vector<int32_t> read_;      // the block read last
    size_t which_ = SIZE_MAX;        // that is
};

} // namespace kuq

#endif
