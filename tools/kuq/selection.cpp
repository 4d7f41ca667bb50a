// selection.cpp - conditions on the columns of rows in the cache

#include "selection.h"

#include "characters.h"
#include "codes.h"
#include "session.h"

namespace kuq
{

std::vector<argument> selection_arguments()
{
    return {
        {"where",
         "(COLUMN,PATTERN,...): rows where all fit; % any characters, _ one",
         {},
         nullptr,
         KUCL_LIST},
        {"like", "the same, with escape=", {}, nullptr, KUCL_LIST},
        {"escape", "the character that makes the next one in like= stand for itself"},
        {"match",
         "(COLUMN,PATTERN,...): rows where all regular expressions are found",
         {},
         nullptr,
         KUCL_LIST},
    };
}

bool selection::prepare(const arguments &given)
{
    static constexpr struct {
        const char *keyword;
        pattern_kind kind;
        bool escapes;
    } kinds[] = {{"where", pattern_kind::like, false},
                 {"like", pattern_kind::like, true},
                 {"match", pattern_kind::regular, false}};
    const std::string named = given.value("escape");
    characters mark(app_, named);
    uint32_t value = 0;
    if (given.given("escape") && (!mark.next(&value) || mark.next(&value))) {
        kuxer1push(app_.ctx(), KUQAA_ESCAPE, named.c_str());
        return false;
    }
    for (const auto &each : kinds) {
        const std::vector<std::string> pairs = given.values(each.keyword);
        if (pairs.size() % 2 != 0) {
            kuxer1push(app_.ctx(), KUQAA_PAIRS, each.keyword);
            return false;
        }
        const std::string escape = each.escapes ? named : "";
        for (size_t at = 0; at < pairs.size(); at += 2) {
            const bool whole = each.kind == pattern_kind::like;
            conditions_.push_back({pairs[at], 0, whole, std::make_unique<pattern>(app_)});
            if (!conditions_.back().fits->compile(pairs[at + 1], each.kind, false, escape))
                return false;
        }
    }
    return true;
}

bool selection::resolve(const std::vector<column> &columns)
{
    for (condition &each : conditions_)
        if (!find_column(app_, columns, each.name, &each.column)) return false;
    return true;
}

bool selection::wants(const rows &from, bool *result)
{
    *result = false;
    for (const condition &each : conditions_) {
        std::string text;
        match found = {};
        if (from.null(each.column)) return true;
        if (!from.text(each.column, SIZE_MAX, &text)) return false;
        if (!(each.whole ? each.fits->covers(text) : each.fits->find(text, 0, &found))) return true;
    }
    *result = true;
    return true;
}

} // namespace kuq
