// arguments.cpp - from a table of arguments to the library's definitions and back
//
// The parser answers with one error record: a code and the definition concerned.
// What a person needs to hear is worked out here: which value was bad, which
// values are allowed, which keyword was probably meant.

#include "arguments.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <numeric>

#include "codes.h"

namespace kuq
{
namespace
{

// Edits (a letter put in, left out or changed) between two words.
size_t distance(const std::string &from, const std::string &to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < from.size(); i++) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < to.size(); j++) {
            const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

bool among(const std::string &value, const std::vector<const char *> &allowed)
{
    return std::find(allowed.begin(), allowed.end(), value) != allowed.end();
}

bool is_keyword(const std::string &word)
{
    return !word.empty() && word.find_first_of(" \t\n'\"(") == std::string::npos;
}

} // namespace

bool whole_number(const std::string &text, uint64_t least, uint64_t *result)
{
    const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), *result);
    return error == std::errc() && at == text.data() + text.size() && *result >= least;
}

std::string alternatives(const std::vector<const char *> &words)
{
    std::string text;
    for (size_t index = 0; index < words.size(); index++) {
        if (index > 0) text += index + 1 == words.size() ? " or " : ", ";
        text += words[index];
    }
    return text;
}

std::string nearest(const std::string &word, const std::vector<const char *> &words)
{
    return *std::min_element(words.begin(), words.end(), [&](const char *a, const char *b) {
        return distance(word, a) < distance(word, b);
    });
}

arguments::arguments(application &app, const std::vector<argument> &table)
    : app_(app), ctx_(app.ctx()), table_(table)
{
    definitions_.reserve(table.size());
    list_ = kulpcreate(ctx_, static_cast<int32_t>(table.size()), nullptr);
    for (const argument &entry : table) {
        kucla definition = {};
        definition.kuclakwd = entry.keyword;
        definition.kuclaflg = entry.flags;
        if (!entry.allowed.empty()) {
            definition.kuclaflg |= KUCL_CHOICE | KUCL_NOCASE;
            definition.kuclalst = kulpcreate(ctx_, 0, nullptr);
            for (const char *word : entry.allowed)
                kulpinsert(ctx_, definition.kuclalst, KUL_APPEND, const_cast<char *>(word));
        }
        definitions_.push_back(definition);
        kulpinsert(ctx_, list_, KUL_APPEND, &definitions_.back());
    }
}

arguments::~arguments()
{
    for (int32_t index = 0; index < kulpnitems(ctx_, list_); index++)
        release(*static_cast<kucla *>(kulpitem(ctx_, list_, index)));
    kulpdestroy(ctx_, list_);
}

// Values belong to the caller of a parse, and so do definitions that the parser added.
void arguments::release(kucla &definition)
{
    kuxa callbacks = {};
    callbacks.kuxamask = KUXA_NMALL;
    kuxget(ctx_, &callbacks);
    if (definition.kuclalst != nullptr) kulpdestroy(ctx_, definition.kuclalst);
    if (definition.kuclaval != nullptr) {
        for (int32_t index = 0; index < kulpnitems(ctx_, definition.kuclaval); index++)
            callbacks.kuxanmfree(ctx_, kulpitem(ctx_, definition.kuclaval, index));
        kulpdestroy(ctx_, definition.kuclaval);
    }
    if ((definition.kuclaflg & KUCL_ADDED) != 0) {
        callbacks.kuxanmfree(ctx_, const_cast<char *>(definition.kuclakwd));
        callbacks.kuxanmfree(ctx_, &definition);
    }
}

// The parser takes quotes inside a value for its own, and a = in a value by position for
// a keyword's. It never sees such a value: it gets another word in its place.
// position: of the word among those without a keyword
std::string arguments::shielded(const std::string &word, size_t position)
{
    const size_t equals = word.find('=');
    const bool keyword = equals != std::string::npos && is_keyword(word.substr(0, equals));
    const size_t start = keyword ? equals + 1 : 0;
    const std::string value = word.substr(start);
    const argument *entry = keyword                    ? find(word.substr(0, equals))
                            : position < table_.size() ? &table_[position]
                                                       : nullptr;
    const bool verbatim = entry != nullptr && entry->verbatim && !value.empty();
    const char first = value.empty() ? '\0' : value.front();
    const bool quoted = (first == '\'' || first == '"') && value.find(first, 1) == value.size() - 1;
    const bool plain =
        value.find_first_of("'\"") == std::string::npos && (keyword || equals == std::string::npos);
    if (!verbatim && (first == '(' || quoted || plain)) return word;
    shielded_.push_back(value);
    return word.substr(0, start) + "\x01" + std::to_string(shielded_.size() - 1);
}

std::string arguments::unshielded(const char *value) const
{
    if (*value != '\x01') return value;
    const size_t index = std::strtoul(value + 1, nullptr, 10);
    return index < shielded_.size() ? shielded_[index] : value;
}

arguments::outcome arguments::parse(int count, char **words)
{
    std::vector<std::string> copies(words, words + count);
    std::vector<char *> safe;
    size_t position = 0;
    for (std::string &word : copies) {
        if (!safe.empty()) word = shielded(word, position++);
        safe.push_back(word.data());
    }
    kucle *error = kuclpa(ctx_, count, safe.data(), list_, 0);
    if (error == nullptr) return outcome::parsed;
    const bool help = error->kuclecod == KUCLE_HELP;
    if (!help) explain(*error);
    kucledestroy(ctx_, error);
    return help ? outcome::help : outcome::wrong;
}

void arguments::explain(const kucle &error)
{
    const char *keyword = error.kuclearg == nullptr ? "" : error.kuclearg->kuclakwd;
    switch (error.kuclecod) {
    case KUCLE_UNKNOWN: {
        std::vector<const char *> keywords;
        for (const argument &entry : table_) keywords.push_back(entry.keyword);
        kuxer2push(ctx_, KUQAA_ARGUMENT, keyword, nearest(keyword, keywords).c_str());
        break;
    }
    case KUCLE_BADVALUE: {
        const argument *entry = find(keyword);
        std::string bad;
        for (const std::string &value : values(keyword))
            if (bad.empty() && !among(value, entry->allowed)) bad = value;
        kuxer3push(ctx_, KUQAA_CHOICE, keyword, bad.c_str(), alternatives(entry->allowed).c_str());
        break;
    }
    case KUCLE_REPEATED: kuxer1push(ctx_, KUQAA_REPEATED, keyword); break;
    case KUCLE_TOOMANY: kuxer0push(ctx_, KUQAA_TOOMANY); break;
    case KUCLE_POSITION: kuxer0push(ctx_, KUQAA_POSITION); break;
    case KUCLE_SYNTAX: kuxer0push(ctx_, KUQAA_SYNTAX); break;
    case KUCLE_NOTLIST: kuxer1push(ctx_, KUQAA_NOTLIST, keyword); break;
    default: kuxer0push(ctx_, KUQAA_MEMORY); break;
    }
}

const argument *arguments::find(const std::string &keyword) const
{
    for (const argument &entry : table_)
        if (keyword == entry.keyword) return &entry;
    return nullptr;
}

bool arguments::given(const char *keyword) const { return kuclgv(ctx_, list_, keyword) != nullptr; }

std::string arguments::value(const char *keyword) const
{
    const std::vector<std::string> all = values(keyword);
    return all.empty() ? "" : all.front();
}

std::vector<std::string> arguments::values(const char *keyword) const
{
    std::vector<std::string> all;
    void *list = kuclgv(ctx_, list_, keyword);
    for (int32_t index = 0; list != nullptr && index < kulpnitems(ctx_, list); index++)
        all.push_back(unshielded(static_cast<const char *>(kulpitem(ctx_, list, index))));
    return all;
}

bool arguments::choice(const char *keyword, std::string *result) const
{
    const argument *entry = find(keyword);
    const auto lower = [](std::string text) {
        for (char &letter : text)
            if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
        return text;
    };
    *result = entry->default_value;
    if (given(keyword)) {
        *result = lower(value(keyword));
        return true;
    }
    const std::optional<setting> found = app_.find_setting(keyword, 0);
    if (!found || found->values.empty()) return true;
    *result = lower(found->values.front());
    if (among(*result, entry->allowed)) return true;
    kuxer3push(ctx_, KUQAA_SETTING, keyword, found->values.front().c_str(),
               alternatives(entry->allowed).c_str());
    return false;
}

} // namespace kuq
