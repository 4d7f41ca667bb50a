// skup.cpp - where the preference files are
//
// The environment names a directory for each file; the rest of the name is
// fixed. There is no context here, so names are joined byte by byte.

#include "skup.h"

#include "../port/core/core.h"
#include "../port/dbclient/dbclient.h"

uint16_t skupfn(char *buffer, uint32_t length, uint16_t selector)
{
    const bool global = selector == SKUP_GLOBAL;
    char directory[ku::core::variable_longest + 1];
    std::size_t used = 0;
    if (ku::core::translate(global ? "KU_GPREFS" : "KU_UPREFS", directory, sizeof directory, &used)
        != ku::core::variable::found)
        return 1;
    const auto built = ku::dbclient::build_file_name(directory, global ? "kugprefs" : "kuuprefs",
                                                     "xdb", nullptr, buffer, length);
    return built == ku::dbclient::name_status::built ? 0 : 1;
}

void skupsi(const char *) {}
