// database.cpp - rows come in arrays, every value as text: only text is exact for all datatypes
//
// A column's array has places for short values. A text or binary value that is longer
// is fetched again from its row in the array, in pieces. A driver that cannot go back
// to a row is asked for one row at a time, and for every value by itself.
//
// Statements, names and messages are UTF-16. For a driver that has only bytes the
// driver manager makes a byte of each unit, as in ISO 8859-1; such a driver is told by
// what comes back of a letter that has no place there, and gets UTF-8.

#include "database.h"

#include <sql.h>
#include <sqlext.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "codes.h"

namespace kuq
{

struct database::buffer {
    SQLSMALLINT kind; // SQL_C_...
    bool key;
    size_t width; // bytes of a value, its terminator included
    std::vector<char> bytes = {};
    std::vector<SQLLEN> lengths = {};
    std::string text = {};    // the value given last
    piece_reader reader = {}; // of the long value given last
    std::string pending = {}; // its bytes that are here and were not given yet
    size_t given = 0;         // of them, those that were given

    size_t terminator() const
    {
        return kind == SQL_C_WCHAR ? sizeof(SQLWCHAR) : kind == SQL_C_CHAR ? 1 : 0;
    }
    size_t room() const { return width - terminator(); } // bytes of the longest value
};

namespace
{

constexpr size_t array_bytes = 1 << 20; // of all values of one fetch
constexpr size_t most_rows = 256;       // of one fetch
constexpr size_t number_text = 400;     // bytes of the longest number or date as text
constexpr size_t short_units = 480;     // UTF-16 units of a text: in any set at most short_bytes
constexpr size_t piece_bytes = 1 << 18; // of a long value, fetched at once

// What keeps two drivers from holding the whole result in memory; others do not know it.
struct option {
    const char *name;
    const char *value;
};
constexpr option streaming[] = {{"StepAPI", "1"}, {"UseDeclareFetch", "1"}, {"Fetch", "256"}};

static_assert(sizeof(SQLWCHAR) == sizeof(char16_t));

SQLWCHAR *units(std::u16string *text) { return reinterpret_cast<SQLWCHAR *>(text->data()); }

datatype type_of(SQLSMALLINT type)
{
    switch (type) {
    case SQL_TINYINT:
    case SQL_SMALLINT: return datatype::integer;
    // Some databases keep 64 bits in every integer column, so these are numbers.
    case SQL_INTEGER:
    case SQL_BIGINT:
    case SQL_NUMERIC:
    case SQL_DECIMAL:
    case SQL_REAL:
    case SQL_FLOAT:
    case SQL_DOUBLE: return datatype::number;
    case SQL_TYPE_DATE: return datatype::date;
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: return datatype::binary;
    default: return datatype::text; // times too: their fractions stay
    }
}

bool mentions(const std::string &text, const char *word)
{
    const size_t length = std::strlen(word);
    for (size_t at = 0; at + length <= text.size(); at++)
        if (strncasecmp(text.c_str() + at, word, length) == 0) return true;
    return false;
}

std::u16string as_units(const char *bytes, size_t length)
{
    std::u16string text(length / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), bytes, text.size() * sizeof(char16_t));
    return text;
}

} // namespace

database::~database()
{
    if (statement_ != nullptr) SQLFreeHandle(SQL_HANDLE_STMT, statement_);
    if (connected_) SQLDisconnect(connection_);
    if (connection_ != nullptr) SQLFreeHandle(SQL_HANDLE_DBC, connection_);
    if (environment_ != nullptr) SQLFreeHandle(SQL_HANDLE_ENV, environment_);
}

std::u16string database::sent(std::string_view text) const
{
    std::u16string wide = charset_.to_utf16(text);
    return in_bytes_ ? to_utf8_units(wide) : wide;
}

std::string database::received(const std::u16string &text) const
{
    return charset_.from_utf16(in_bytes_ ? from_utf8_units(text) : text);
}

bool database::open(const std::string &where)
{
    if (connected_) SQLDisconnect(connection_);
    std::u16string wide = sent(where);
    connected_ = SQL_SUCCEEDED(SQLDriverConnectW(connection_, nullptr, units(&wide),
                                                 static_cast<SQLSMALLINT>(wide.size()), nullptr, 0,
                                                 nullptr, SQL_DRIVER_NOPROMPT));
    return connected_;
}

// Whether a letter that has no place in ISO 8859-1 comes back as another; false where the
// database does not answer such a statement.
bool database::loses_letters()
{
    const std::u16string letter = u"\u0100";
    std::u16string text = u"select '" + letter + u"'";
    if (in_bytes_) text = to_utf8_units(text);
    char16_t answer[16] = {};
    SQLLEN length = 0;
    SQLHANDLE asked = nullptr;
    SQLAllocHandle(SQL_HANDLE_STMT, connection_, &asked);
    const bool answered =
        SQL_SUCCEEDED(SQLExecDirectW(asked, units(&text), static_cast<SQLINTEGER>(text.size())))
        && SQL_SUCCEEDED(SQLFetch(asked))
        && SQL_SUCCEEDED(SQLGetData(asked, 1, SQL_C_WCHAR, answer, sizeof answer, &length));
    SQLFreeHandle(SQL_HANDLE_STMT, asked);
    return answered && answer != letter;
}

bool database::connect(const std::string &where)
{
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment_);
    SQLSetEnvAttr(environment_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                  0);
    SQLAllocHandle(SQL_HANDLE_DBC, environment_, &connection_);
    std::string text = where.find('=') == std::string::npos ? "DSN=" + where : where;
    for (const option &each : streaming)
        if (!mentions(where, each.name)) text += std::string(";") + each.name + "=" + each.value;
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char letter) { return (letter & 0x80) == 0; });
    if (open(text) ? loses_letters() : !ascii) {
        in_bytes_ = true; // the name of the database, too
        in_bytes_ = open(text) && !loses_letters();
        if (!in_bytes_) open(text);
    }
    if (connected_) return true;
    std::string state;
    std::string reason;
    diagnose(SQL_HANDLE_DBC, connection_, &state, &reason);
    kuxer2push(app_.ctx(), KUQAA_CONNECT, state.c_str(), reason.c_str());
    return false;
}

// The newest diagnostic record of a handle.
void database::diagnose(short kind, void *handle, std::string *state, std::string *text) const
{
    std::u16string code(6, u'\0');
    std::u16string message(1000, u'\0');
    SQLSMALLINT length = 0;
    SQLINTEGER native = 0;
    SQLGetDiagRecW(kind, handle, 1, units(&code), &native, units(&message),
                   static_cast<SQLSMALLINT>(message.size()), &length);
    *state = received(code.c_str());
    *text = received(message.c_str());
    std::replace(text->begin(), text->end(), '\n', ' ');
    if (state->empty()) *state = "none";
}

bool database::refuse()
{
    std::string state;
    std::string reason;
    diagnose(SQL_HANDLE_STMT, statement_, &state, &reason);
    SQLUINTEGER dead = SQL_CD_FALSE;
    SQLGetConnectAttr(connection_, SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr);
    const bool lost = dead == SQL_CD_TRUE || state.compare(0, 2, "08") == 0;
    kuxer4push(app_.ctx(), lost ? KUQAA_LOST : KUQAA_DATABASE, std::to_string(number_).c_str(),
               std::to_string(line_).c_str(), state.c_str(), reason.c_str());
    return false;
}

bool database::describe(uint16_t number, column *result)
{
    std::u16string name(1024, u'\0'); // some drivers do not say that they have cut one
    for (bool again = true; again;) {
        SQLSMALLINT length = 0;
        SQLSMALLINT type = 0;
        SQLULEN size = 0;
        SQLSMALLINT scale = 0;
        SQLSMALLINT nulls = 0;
        if (!SQL_SUCCEEDED(SQLDescribeColW(statement_, number, units(&name),
                                           static_cast<SQLSMALLINT>(name.size()), &length, &type,
                                           &size, &scale, &nulls)))
            return refuse();
        again = static_cast<size_t>(length) >= name.size(); // it was cut
        name.resize(static_cast<size_t>(length) + (again ? 1 : 0));
        result->type = type_of(type);
    }
    result->name = received(name);
    return true;
}

bool database::execute(const statement &given, std::vector<column> *columns)
{
    number_ = given.number;
    line_ = given.first_line;
    if (statement_ != nullptr) SQLFreeHandle(SQL_HANDLE_STMT, statement_);
    SQLAllocHandle(SQL_HANDLE_STMT, connection_, &statement_);
    std::string_view text = given.text;
    if (!text.empty() && text.back() == ';') text.remove_suffix(1); // some servers refuse it
    std::u16string wide = sent(text);
    const SQLRETURN done =
        SQLExecDirectW(statement_, units(&wide), static_cast<SQLINTEGER>(wide.size()));
    if (!SQL_SUCCEEDED(done) && done != SQL_NO_DATA) return refuse();
    SQLSMALLINT count = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(statement_, &count))) return refuse();
    columns->assign(static_cast<size_t>(count), {});
    for (size_t at = 0; at < columns->size(); at++)
        if (!describe(static_cast<uint16_t>(at + 1), &(*columns)[at])) return false;
    return true;
}

bool database::arrays_serve(const std::vector<column> &columns) const
{
    SQLUINTEGER can = 0;
    SQLGetInfo(connection_, SQL_GETDATA_EXTENSIONS, &can, sizeof can, nullptr);
    const bool goes_back = (can & SQL_GD_BLOCK) != 0 && (can & SQL_GD_BOUND) != 0;
    return goes_back || std::none_of(columns.begin(), columns.end(), [](const column &each) {
               return each.may_be_long();
           });
}

bool database::bind(std::vector<buffer> *buffers, size_t rows)
{
    for (size_t at = 0; at < buffers->size(); at++) {
        buffer &each = (*buffers)[at];
        each.bytes.resize(each.width * rows);
        each.lengths.resize(rows);
        if (arrays_
            && !SQL_SUCCEEDED(SQLBindCol(statement_, static_cast<SQLUSMALLINT>(at + 1), each.kind,
                                         each.bytes.data(), static_cast<SQLLEN>(each.width),
                                         each.lengths.data())))
            return refuse();
    }
    return true;
}

bool database::get(uint16_t number, buffer *into)
{
    return SQL_SUCCEEDED(SQLGetData(statement_, number, into->kind, into->bytes.data(),
                                    static_cast<SQLLEN>(into->width), into->lengths.data()))
           || refuse();
}

void database::take_cut(const buffer &from, const char *bytes, size_t length, std::string *result)
{
    cut_++;
    if (from.kind != SQL_C_WCHAR) {
        result->assign(bytes, length);
        return;
    }
    std::u16string text = as_units(bytes, length);
    for (;;) {
        if (!text.empty() && (text.back() & 0xFC00) == 0xD800) text.pop_back();
        *result = charset_.from_utf16(text);
        if (result->size() <= short_bytes) return;
        const size_t over = (result->size() - short_bytes + 3) / 4;
        text.resize(text.size() - std::min(over, text.size()));
    }
}

bool database::take_long(uint16_t number, size_t row, buffer *from, value *result)
{
    from->pending.clear();
    from->given = 0;
    if (!arrays_)
        from->pending.assign(from->bytes.data(), from->room());
    else if (from->lengths.size() > 1
             && !SQL_SUCCEEDED(SQLSetPos(statement_, row + 1, SQL_POSITION, SQL_LOCK_NO_CHANGE)))
        return refuse();

    // One more piece behind what is pending; *more: there is another one.
    const auto fetch_piece = [this, number, from](bool *more) {
        const size_t old = from->pending.size();
        from->pending.resize(old + piece_bytes);
        SQLLEN length = 0;
        const SQLRETURN done =
            SQLGetData(statement_, number, from->kind, from->pending.data() + old,
                       static_cast<SQLLEN>(piece_bytes), &length);
        const size_t room = piece_bytes - from->terminator();
        const bool cut = length < 0 || static_cast<size_t>(length) > room;
        *more = done == SQL_SUCCESS_WITH_INFO && cut;
        const bool got = SQL_SUCCEEDED(done) && length != SQL_NULL_DATA;
        from->pending.resize(old + (!got ? 0 : cut ? room : static_cast<size_t>(length)));
        return got || (done == SQL_NO_DATA ? true : refuse());
    };
    SQLLEN length = from->lengths[row];
    if (length == SQL_NO_TOTAL) { // only reading it tells
        bool more = true;
        while (more)
            if (!fetch_piece(&more)) return false;
        length = static_cast<SQLLEN>(from->pending.size());
    }
    if (length > INT32_MAX) {
        kuxer0push(app_.ctx(), KUQAA_TOOLONG);
        return false;
    }
    from->reader = [this, from, fetch_piece](void *to, size_t wanted) {
        while (from->pending.size() - from->given < wanted) {
            from->pending.erase(0, from->given);
            from->given = 0;
            const size_t before = from->pending.size();
            bool more = false;
            if (!fetch_piece(&more)) return false;
            if (from->pending.size() == before) return refuse(); // it ended early
        }
        std::memcpy(to, from->pending.data() + from->given, wanted);
        from->given += wanted;
        return true;
    };
    *result = {std::string_view(""), &from->reader, static_cast<uint32_t>(length),
               static_cast<size_t>(length) / 2};
    return true;
}

bool database::take(uint16_t number, size_t row, buffer *from, value *result)
{
    const char *bytes = from->bytes.data() + row * from->width;
    const SQLLEN length = from->lengths[row];
    *result = value();
    if (length == SQL_NULL_DATA) return true;
    const bool whole = length >= 0 && static_cast<size_t>(length) <= from->room();
    if (!whole && from->kind == SQL_C_CHAR)
        from->text.assign(bytes, from->room()) += "..."; // no number or date is that long
    else if (!whole && !from->key)
        return take_long(number, row, from, result);
    else if (!whole)
        take_cut(*from, bytes, from->room(), &from->text);
    else if (from->kind != SQL_C_WCHAR)
        from->text.assign(bytes, static_cast<size_t>(length));
    else {
        from->text = charset_.from_utf16(as_units(bytes, static_cast<size_t>(length)));
        if (from->text.size() > short_bytes)
            take_cut(*from, bytes, static_cast<size_t>(length), &from->text);
    }
    *result = {from->text, nullptr, 0,
               from->kind == SQL_C_CHAR ? from->text.size() : static_cast<size_t>(length) / 2};
    return true;
}

bool database::fetch(const std::vector<column> &columns,
                     const std::function<bool(const std::vector<value> &)> &visit)
{
    std::vector<buffer> buffers;
    size_t row_bytes = 1;
    for (const column &each : columns) {
        const size_t count = each.key ? short_bytes : short_units;
        if (each.type == datatype::text)
            buffers.push_back({SQL_C_WCHAR, each.key, (count + 1) * sizeof(SQLWCHAR)});
        else if (each.type == datatype::binary)
            buffers.push_back({SQL_C_BINARY, each.key, short_bytes / 2}); // two digits a byte
        else
            buffers.push_back({SQL_C_CHAR, each.key, number_text});
        row_bytes += buffers.back().width;
    }
    arrays_ = arrays_serve(columns);
    size_t rows = arrays_ ? std::clamp<size_t>(array_bytes / row_bytes, 1, most_rows) : 1;
    if (!SQL_SUCCEEDED(SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE,
                                      reinterpret_cast<SQLPOINTER>(rows), 0)))
        rows = 1; // a driver without arrays
    SQLULEN fetched = 1;
    std::vector<SQLUSMALLINT> states(rows, SQL_ROW_SUCCESS);
    SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, &fetched, 0);
    SQLSetStmtAttr(statement_, SQL_ATTR_ROW_STATUS_PTR, states.data(), 0);
    if (!bind(&buffers, rows)) return false;

    std::vector<value> values(columns.size());
    for (;;) {
        const SQLRETURN got = SQLFetch(statement_);
        if (got == SQL_NO_DATA) return true;
        if (!SQL_SUCCEEDED(got)) return refuse();
        for (size_t row = 0; row < fetched; row++) {
            if (states[row] == SQL_ROW_ERROR) return refuse();
            for (size_t at = 0; at < values.size(); at++) {
                const auto number = static_cast<uint16_t>(at + 1);
                if (!arrays_ && !get(number, &buffers[at])) return false;
                if (!take(number, row, &buffers[at], &values[at])) return false;
            }
            if (!visit(values)) return true;
        }
    }
}

} // namespace kuq
