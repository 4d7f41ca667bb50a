// database.h - a database behind ODBC: a connection, and the rows of a statement's result
#ifndef KUQ_DATABASE_H
#define KUQ_DATABASE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "application.h"
#include "statements.h"

namespace kuq
{

enum class datatype { text, integer, number, date };

struct column {
    std::string name;
    datatype type;
    uint32_t longest; // bytes of its longest value as text; longer ones are cut
};

// A value as text; null data for NULL.
using value = std::string_view;

class database
{
public:
    explicit database(application &app) : app_(app) {}
    ~database();
    database(const database &) = delete;
    database &operator=(const database &) = delete;

    // A connection string, or the name of a data source. False with the reason pushed.
    bool connect(const std::string &where);

    // Executes. False with the reason pushed; *columns is empty when it returns no rows.
    bool execute(const statement &given, uint32_t longest, std::vector<column> *columns);

    // Gives the rows of the result until it ends or `visit` returns false. False with the reason
    // pushed when the database failed.
    bool fetch(const std::function<bool(const std::vector<value> &)> &visit);

    uint64_t cut() const { return cut_; } // values that were cut so far

private:
    bool refuse(); // pushes what the database said about the statement
    bool describe(uint16_t number, uint32_t longest, column *result);

    application &app_;
    void *environment_ = nullptr;
    void *connection_ = nullptr;
    void *statement_ = nullptr;
    bool connected_ = false;
    uint64_t number_ = 0; // of the statement
    uint64_t line_ = 0;
    std::vector<column> columns_;
    uint64_t cut_ = 0;
};

} // namespace kuq

#endif
