// database.cpp - rows come in arrays, every value as text: only text is exact for all datatypes

#include "database.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>

#include "codes.h"

namespace kuq
{
namespace
{

constexpr size_t array_bytes = 1 << 20; // of all values of one fetch
constexpr size_t most_rows = 256;       // of one fetch
constexpr uint32_t number_text = 400;   // bytes of the longest number as text
constexpr uint32_t date_text = 32;
constexpr uint32_t utf8_longest = 4; // bytes of a character

// The newest diagnostic record of a handle.
void diagnose(SQLSMALLINT kind, SQLHANDLE handle, std::string *state, std::string *text)
{
    SQLCHAR code[6] = {};
    SQLCHAR message[1000] = {};
    SQLSMALLINT length = 0;
    SQLINTEGER native = 0;
    SQLGetDiagRec(kind, handle, 1, code, &native, message, sizeof message, &length);
    *state = reinterpret_cast<char *>(code);
    *text = reinterpret_cast<char *>(message);
}

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
    default: return datatype::text; // times too: their fractions stay
    }
}

// A cut in the middle of a character moves before it.
size_t whole_characters(const char *text, size_t length)
{
    size_t end = length;
    while (end > 0 && length - end < utf8_longest
           && (static_cast<unsigned char>(text[end - 1]) & 0xC0) == 0x80)
        end--;
    return end > 0 && (static_cast<unsigned char>(text[end - 1]) & 0x80) != 0 ? end - 1 : length;
}

// One column of a fetched array.
struct buffer {
    size_t width; // bytes of a value with its NUL
    std::vector<char> bytes;
    std::vector<SQLLEN> lengths;
};

} // namespace

database::~database()
{
    if (statement_ != nullptr) SQLFreeHandle(SQL_HANDLE_STMT, statement_);
    if (connected_) SQLDisconnect(connection_);
    if (connection_ != nullptr) SQLFreeHandle(SQL_HANDLE_DBC, connection_);
    if (environment_ != nullptr) SQLFreeHandle(SQL_HANDLE_ENV, environment_);
}

bool database::connect(const std::string &where)
{
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment_);
    SQLSetEnvAttr(environment_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3),
                  0);
    SQLAllocHandle(SQL_HANDLE_DBC, environment_, &connection_);
    std::string text = where.find('=') == std::string::npos ? "DSN=" + where : where;
    auto *bytes = reinterpret_cast<SQLCHAR *>(text.data());
    connected_ = SQL_SUCCEEDED(SQLDriverConnect(connection_, nullptr, bytes, SQL_NTS, nullptr, 0,
                                                nullptr, SQL_DRIVER_NOPROMPT));
    if (connected_) return true;
    std::string state;
    std::string reason;
    diagnose(SQL_HANDLE_DBC, connection_, &state, &reason);
    kuxer2push(app_.ctx(), KUQAA_CONNECT, state.c_str(), reason.c_str());
    return false;
}

bool database::refuse()
{
    std::string state;
    std::string reason;
    diagnose(SQL_HANDLE_STMT, statement_, &state, &reason);
    kuxer4push(app_.ctx(), KUQAA_DATABASE, std::to_string(number_).c_str(),
               std::to_string(line_).c_str(), state.c_str(), reason.c_str());
    return false;
}

bool database::describe(uint16_t number, uint32_t longest, column *result)
{
    SQLCHAR name[256] = {};
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLULEN size = 0;
    SQLSMALLINT scale = 0;
    SQLSMALLINT nulls = 0;
    if (!SQL_SUCCEEDED(SQLDescribeCol(statement_, number, name, sizeof name, &length, &type, &size,
                                      &scale, &nulls)))
        return refuse();
    *result = {reinterpret_cast<char *>(name), type_of(type), longest};
    if (result->type == datatype::date)
        result->longest = date_text;
    else if (result->type != datatype::text)
        result->longest = number_text;
    return true;
}

bool database::execute(const statement &given, uint32_t longest, std::vector<column> *columns)
{
    number_ = given.number;
    line_ = given.first_line;
    columns_.clear();
    if (statement_ != nullptr) SQLFreeHandle(SQL_HANDLE_STMT, statement_);
    SQLAllocHandle(SQL_HANDLE_STMT, connection_, &statement_);
    std::string text = given.text;
    if (!text.empty() && text.back() == ';') text.pop_back(); // some servers refuse it
    const SQLRETURN done =
        SQLExecDirect(statement_, reinterpret_cast<SQLCHAR *>(text.data()), SQL_NTS);
    if (!SQL_SUCCEEDED(done) && done != SQL_NO_DATA) return refuse();
    SQLSMALLINT count = 0;
    SQLNumResultCols(statement_, &count);
    columns_.resize(static_cast<size_t>(count));
    for (size_t at = 0; at < columns_.size(); at++)
        if (!describe(static_cast<uint16_t>(at + 1), longest, &columns_[at])) return false;
    *columns = columns_;
    return true;
}

bool database::fetch(const std::function<bool(const std::vector<value> &)> &visit)
{
    size_t row_bytes = 1;
    for (const column &each : columns_) row_bytes += each.longest + 1;
    size_t rows = std::clamp<size_t>(array_bytes / row_bytes, 1, most_rows);
    if (!SQL_SUCCEEDED(SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE,
                                      reinterpret_cast<SQLPOINTER>(rows), 0)))
        rows = 1; // a driver without arrays
    SQLULEN fetched = 1;
    SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, &fetched, 0);

    std::vector<buffer> buffers(columns_.size());
    for (size_t at = 0; at < columns_.size(); at++) {
        buffer &each = buffers[at];
        each.width = columns_[at].longest + 1;
        each.bytes.resize(each.width * rows);
        each.lengths.resize(rows);
        if (!SQL_SUCCEEDED(SQLBindCol(statement_, static_cast<SQLUSMALLINT>(at + 1), SQL_C_CHAR,
                                      each.bytes.data(), static_cast<SQLLEN>(each.width),
                                      each.lengths.data())))
            return refuse();
    }
    std::vector<value> row(columns_.size());
    for (;;) {
        const SQLRETURN got = SQLFetch(statement_);
        if (got == SQL_NO_DATA) return true;
        if (!SQL_SUCCEEDED(got)) return refuse();
        for (size_t index = 0; index < fetched; index++) {
            for (size_t at = 0; at < row.size(); at++) {
                const buffer &each = buffers[at];
                const char *text = each.bytes.data() + index * each.width;
                const SQLLEN length = each.lengths[index];
                const bool whole = length >= 0 && static_cast<size_t>(length) < each.width;
                if (length == SQL_NULL_DATA)
                    row[at] = value();
                else if (whole)
                    row[at] = value(text, static_cast<size_t>(length));
                else {
                    row[at] = value(text, whole_characters(text, each.width - 1));
                    cut_++;
                }
            }
            if (!visit(row)) return true;
        }
    }
}

} // namespace kuq
