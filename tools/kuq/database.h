// database.h - a database behind ODBC: a connection, and the rows of a statement's result
#ifndef KUQ_DATABASE_H
#define KUQ_DATABASE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "application.h"
#include "charset.h"
#include "statements.h"

namespace kuq
{

enum class datatype { text, integer, number, date, binary };

struct column {
    std::string name;
    datatype type;
    bool key = false; // groups are made by it: its values are short, longer ones are cut

    // Whether it can have values that come in pieces.
    bool may_be_long() const
    {
        return !key && (type == datatype::text || type == datatype::binary);
    }
};

constexpr size_t short_bytes = 2000; // of a value that comes in one piece, in any character set

// Gives the next bytes of a long value, exactly so many. False with the reason pushed.
using piece_reader = std::function<bool(void *to, size_t length)>;

// A value of a fetched row; borrowed for the visit.
struct value {
    std::string_view bytes;               // text in the terminal's character set, or the bytes
                                          // of a binary value; null data for NULL
    const piece_reader *pieces = nullptr; // a long value: from here, text as UTF-16
    uint32_t length = 0;                  // of the long value, in bytes
    size_t width = 0;                     // about so many characters
};

class database
{
public:
    explicit database(application &app) : app_(app), charset_(app) {}
    ~database();
    database(const database &) = delete;
    database &operator=(const database &) = delete;

    // A connection string, or the name of a data source. False with the reason pushed.
    bool connect(const std::string &where);

    // Executes. False with the reason pushed; *columns is empty when it returns no rows.
    bool execute(const statement &given, std::vector<column> *columns);

    // Gives the rows of the result, with these columns, until it ends or `visit` returns
    // false. False with the reason pushed when the database failed.
    bool fetch(const std::vector<column> &columns,
               const std::function<bool(const std::vector<value> &)> &visit);

    uint64_t cut() const { return cut_; } // values that were cut so far

private:
    struct buffer;

    bool open(const std::string &where);
    bool loses_letters();
    std::u16string sent(std::string_view text) const;
    std::string received(const std::u16string &text) const;
    void diagnose(short kind, void *handle, std::string *state, std::string *text) const;
    bool refuse(); // pushes what the database said about the statement
    bool describe(uint16_t number, column *result);
    bool arrays_serve(const std::vector<column> &columns) const;
    bool bind(std::vector<buffer> *buffers, size_t rows);
    bool get(uint16_t number, buffer *into);
    bool take(uint16_t number, size_t row, buffer *from, value *result);
    bool take_long(uint16_t number, size_t row, buffer *from, value *result);
    void take_cut(const buffer &from, const char *bytes, size_t length, std::string *result);

    application &app_;
    charset charset_;
    void *environment_ = nullptr;
    void *connection_ = nullptr;
    void *statement_ = nullptr;
    bool connected_ = false;
    bool in_bytes_ = false; // texts pass the driver manager as UTF-8, a byte in each unit
    bool arrays_ = false;   // of the fetch: columns are bound to arrays
    uint64_t number_ = 0;   // of the statement
    uint64_t line_ = 0;
    uint64_t cut_ = 0;
};

} // namespace kuq

#endif
