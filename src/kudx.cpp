// kudx.cpp - column definitions

#include "kudx.h"

uint32_t kudxctrmlen(const kudxcoldef *column)
{
    if (column == nullptr) return 0;
    const uint8_t type = column->xdbtyp_kudxcol;
    return type == KUDC_CHARACTER || type == KUDC_LONG ? 1 : 0;
}
