// kudcd_internal.h - reading a row step by step
#ifndef KUDCD_INTERNAL_H
#define KUDCD_INTERNAL_H

#include <cstdint>

#include "kudc_internal.h"

namespace ku::cache
{

// A record while it is read from its beginning to its end: in the row buffer, or in the file.
// A copy goes on from where the original is, as long as nothing else uses the row buffer.
class row_reader
{
public:
    row_reader(kudcaccdef *acmp, const kudcthddef *thread, std::int32_t position)
        : acmp_(acmp), thread_(thread), position_(position)
    {
    }

    // Reads the header, and of short rows what is wanted altogether.
    enum class part { head, all };
    std::uint32_t open(part wanted);
    const kudcrchdef &header() const { return header_; }
    bool buffered() const { return bytes_ != nullptr; }
    // Position of what comes next.
    std::int32_t place() const { return static_cast<std::int32_t>(at_); }

    // The next bytes, which must be of this record.
    std::uint32_t take(void *to, std::uint32_t bytes);
    std::uint32_t skip(std::uint32_t bytes)
    {
        if (bytes > end_ - at_) return refuse(acmp_, KUVAA_MISSING);
        at_ += bytes;
        return 0;
    }
    std::uint32_t column(std::uint32_t *length, std::int8_t *isnull);
    // The whole record was taken.
    std::uint32_t close() const { return at_ == end_ ? 0 : refuse(acmp_, KUVAA_MISSING); }

private:
    kudcaccdef *acmp_;
    const kudcthddef *thread_;
    std::int32_t position_;
    kudcrchdef header_ = {};
    std::int64_t at_ = 0;
    std::int64_t end_ = 0;
    const unsigned char *bytes_ = nullptr; // of the record, in the row buffer; or null
};

// Storing a row in steps, between which its keys are entered. The record is written at the end of
// the file, where nothing knows it yet; then it is made the thread's last row and the file ends
// behind it. A row that is not made so, to which keys may lead, is given up: its record stays,
// no other row comes to lie there, and if that can still be written it is seen through no index.
//   header  out: the record's header. The row was checked
std::uint32_t put_row(kudcaccdef *acmp, const kudcthddef *thread, kudcrchdef *header);
std::uint32_t join_row(kudcaccdef *acmp, kudcthddef *thread, const kudcrchdef &header);
void give_up_row(kudcaccdef *acmp, const kudcthddef *thread, const kudcrchdef &header);

// Opens a row and loads header, links and live counts into the thread; the columns come next.
// A thread without arrays: a code pushed.
std::uint32_t open_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread);
// Loads the columns of a row whose head was taken into the thread's, or into bind values.
std::uint32_t load_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread);
std::uint32_t bind_row(kudcaccdef *acmp, row_reader *row, kudcthddef *thread,
                       kudcbvadef *const *values);

} // namespace ku::cache

#endif
