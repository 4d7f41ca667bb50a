// kuum_internal.h - the wildcard walk, over whatever looks at the bytes
//
// The looks at the subject are an argument, so that they can be counted.
#ifndef KUUM_INTERNAL_H
#define KUUM_INTERNAL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kuum.h"

namespace ku::wildcard
{

// Looks straight at the bytes.
struct plain_looks {
    // First place of the byte in `length` bytes, or null.
    const unsigned char *find(const unsigned char *bytes, std::size_t length, unsigned char byte)
    {
        return static_cast<const unsigned char *>(std::memchr(bytes, byte, length));
    }
    // `literal` has no NUL: nothing is read behind the subject's. Most comparisons end at once.
    bool equal(const unsigned char *bytes, const unsigned char *literal, std::size_t length)
    {
        std::size_t i = 0;
        while (i < length && bytes[i] == literal[i]) i++;
        return i == length;
    }
};

// The match of one subject, NUL-terminated.
template <typename Looks> class walk
{
public:
    walk(kuumtdef *tokens, const unsigned char *subject, Looks &looks)
        : token_(tokens + 1), at_(subject), looks_(looks)
    {
        for (kuumtdef *each = token_; each->kuumt_type != KUUMT_END; each++) {
            each->kuumt_sstr = nullptr;
            each->kuumt_snum = 0;
        }
    }

    bool covers()
    {
        while (token_->kuumt_type == KUUMT_LITERAL || token_->kuumt_type == KUUMT_UNDERSCORE)
            if (!begins()) return false;
        if (token_->kuumt_type == KUUMT_END) return *at_ == 0;
        if (token_[1].kuumt_type == KUUMT_END) return true;
        end_ = at_ + std::strlen(reinterpret_cast<const char *>(at_));
        while (token_->kuumt_type != KUUMT_END || at_ != end_) {
            switch (token_->kuumt_type) {
            case KUUMT_PERCENT:
                floating_ = true;
                token_++;
                break;
            case KUUMT_UNDERSCORE:
                if (too_long()) return false;
                pass();
                break;
            case KUUMT_LITERAL:
                if (too_long()) return false;
                if (floating_ ? !find() : !meet() && !resume()) return false;
                break;
            default: // the end of the pattern before that of the subject
                if (floating_) return true;
                if (!resume()) return false;
            }
        }
        return true;
    }

private:
    std::size_t length() const { return static_cast<std::size_t>(token_->kuumt_num); }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

    // What is left is too short for the token. Trying more before it further on would
    // leave still less.
    bool too_long() const { return length() > left(); }

    void pass()
    {
        at_ += length();
        token_++;
    }

    bool meet()
    {
        if (!looks_.equal(at_, token_->kuumt_str, length())) return false;
        pass();
        return true;
    }

    // A token before the first %, where the subject's length is not known yet.
    bool begins()
    {
        if (token_->kuumt_type == KUUMT_LITERAL) return meet();
        for (std::size_t i = 0; i < length(); i++)
            if (at_[i] == 0) return false;
        pass();
        return true;
    }

    // Takes the literal where it comes first, and remembers where to look for the next place.
    // False: there is none; the literals before would only leave less to search.
    bool find()
    {
        const unsigned char *literal = token_->kuumt_str;
        while (!too_long()) {
            at_ = looks_.find(at_, left() - (length() - 1), *literal);
            if (at_ == nullptr) return false;
            if (looks_.equal(at_ + 1, literal + 1, length() - 1)) break;
            at_++;
        }
        if (too_long()) return false;
        resumed_ = token_;
        token_->kuumt_sstr = at_ + 1;
        token_->kuumt_snum = static_cast<std::int32_t>(std::min(left() - 1, most));
        floating_ = false;
        pass();
        return true;
    }

    // Back to the last literal that may match further on.
    bool resume()
    {
        if (resumed_ == nullptr) return false;
        token_ = resumed_;
        at_ = token_->kuumt_sstr;
        token_->kuumt_sstr = nullptr;
        token_->kuumt_snum = 0;
        resumed_ = nullptr;
        floating_ = true;
        return true;
    }

    static constexpr std::size_t most = INT32_MAX;

    kuumtdef *token_;
    const unsigned char *at_;
    const unsigned char *end_ = nullptr; // of the subject
    Looks &looks_;
    kuumtdef *resumed_ = nullptr; // the last literal that was found behind a %
    bool floating_ = false;       // a % stands before the token: it may match further on, too
};

} // namespace ku::wildcard

#endif
