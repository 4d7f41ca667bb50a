// msgfile.cpp - message files: one text per line, found by a walk through the file
//
//     kuxer3 text There is only one level.\nNothing to go back to.
//     name   type text, to the end of the line, with escapes
//
// Messages are looked up when something has gone wrong, so nothing is kept
// between look-ups: a walk reads the file through one block on the stack and
// stores nothing but the text it was asked for. Names and types are compared in
// word-sized buffers; a longer word matches nothing. Texts are decoded through
// cursors of the file's character set, so a backslash byte inside a character
// is no escape, and a cut never splits a character.
//
// Memory is the C library's: this layer belongs to no context.

#include "port/msgfile/msgfile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "port/crt/crt.h"
#include "port/locale/locale.h"

namespace ku::msgfile
{

namespace
{

constexpr std::size_t word_size = 64; // bytes of a name or type with its NUL
constexpr std::size_t block_size = 4096;
constexpr std::size_t first_size = 256;         // bytes a text block starts with
constexpr std::size_t longest_text = 0x3ffffff; // bytes; far above any message
constexpr int at_end = -1;                      // no more bytes, or none to be had

constexpr char charset_word[] = "charset";
constexpr char default_charset[] = "utf8";

// The language of a character set by name; null: of the environment.
kulang language(const char *charset)
{
    kulocglo area;
    kulang lang;
    int error = 0;
    const auto *calls = locale::initialise(locale::start_loader(nullptr, nullptr), 1, &error);
    locale::initialise_area(&area, calls, nullptr, nullptr);
    if (charset == nullptr)
        locale::fill_current(&lang, &area);
    else
        locale::fill_named(&lang, &area, charset[0] != '\0' ? charset : default_charset);
    return lang;
}

// A file's bytes one after the other; a file that cannot be read ends early.
class scanner
{
public:
    explicit scanner(const char *path)
    {
        const kulang lang = language(nullptr);
        crt::status found;
        // A pipe would be waited for, a device may never end: neither is a message file.
        if (!crt::file_status(&lang, path, &found) || !found.regular) return;
        file_ = crt::open(&lang, path, "r", crt::share::deny_none);
    }
    ~scanner()
    {
        if (file_ != nullptr) crt::close(file_);
    }
    scanner(const scanner &) = delete;
    scanner &operator=(const scanner &) = delete;

    bool failed() const { return file_ == nullptr || crt::has_failed(file_); }

    int peek()
    {
        if (position_ == filled_) {
            position_ = 0;
            filled_ = crt::read(file_, block_, sizeof block_);
        }
        return position_ < filled_ ? block_[position_] : at_end;
    }
    int next()
    {
        const int byte = peek();
        if (byte != at_end) position_++;
        return byte;
    }

private:
    kufile *file_ = nullptr;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    unsigned char block_[block_size];
};

// A name, type or character set; empty when the line ended before it or it is too long.
using word = char[word_size];

bool is_blank(int byte) { return byte == ' ' || byte == '\t'; }
bool ends_line(int byte) { return byte == '\n' || byte == at_end; }

void skip_blanks(scanner &in)
{
    while (is_blank(in.peek())) in.next();
}

void skip_line(scanner &in)
{
    while (!ends_line(in.next())) {
    }
}

void read_word(scanner &in, word &into)
{
    std::size_t length = 0;
    skip_blanks(in);
    for (; !is_blank(in.peek()) && !ends_line(in.peek()); length++) {
        const int byte = in.next();
        if (byte == '\0') length = word_size; // no word
        if (length < word_size - 1) into[length] = static_cast<char>(byte);
    }
    if (length != 0 && length < word_size && into[length - 1] == '\r') length--;
    into[length < word_size ? length : 0] = '\0';
}

// A word that could not be read matches nothing, not even an empty one.
bool matches(const word &read, const char *wanted)
{
    return read[0] != '\0' && std::strcmp(read, wanted) == 0;
}

// A text that grows while it is read; released unless it was taken.
class growing_text
{
public:
    growing_text() = default;
    ~growing_text() { std::free(bytes_); }
    growing_text(const growing_text &) = delete;
    growing_text &operator=(const growing_text &) = delete;

    // Two bytes stay free behind the text: one to close a shift, one for a NUL.
    bool append(int byte)
    {
        if (length_ + 2 >= size_ && !grow()) return false;
        bytes_[length_++] = static_cast<char>(byte);
        return true;
    }
    char *bytes() { return bytes_; }
    std::size_t length() const { return length_; }
    void drop_last() { length_--; }
    bool ends_with(char byte) const { return length_ != 0 && bytes_[length_ - 1] == byte; }
    char *take()
    {
        char *taken = bytes_;
        bytes_ = nullptr;
        return taken;
    }

private:
    bool grow()
    {
        const std::size_t wanted = size_ == 0 ? first_size : size_ * 2;
        if (wanted > longest_text) return false;
        auto *moved = static_cast<char *>(std::realloc(bytes_, wanted));
        if (moved == nullptr) return false;
        bytes_ = moved;
        size_ = wanted;
        return true;
    }

    char *bytes_ = nullptr;
    std::size_t length_ = 0;
    std::size_t size_ = 0;
};

// Walks to the first line of this name and type, up to its text; tells the
// character set that the lines before it named.
bool find_line(scanner &in, const char *name, const char *type, word &charset)
{
    charset[0] = '\0';
    while (in.peek() != at_end) {
        word first, second;
        skip_blanks(in);
        if (in.peek() == '#') {
            skip_line(in);
            continue;
        }
        read_word(in, first);
        read_word(in, second);
        skip_blanks(in);
        if (matches(first, name) && matches(second, type)) return true;
        if (std::strcmp(first, charset_word) == 0) std::memcpy(charset, second, sizeof second);
        skip_line(in);
    }
    return false;
}

bool read_text(scanner &in, growing_text &into)
{
    while (!ends_line(in.peek())) {
        const int byte = in.next();
        if (byte == '\0' || !into.append(byte)) return false;
    }
    if (into.ends_with('\r')) into.drop_last();
    return into.length() != 0 && !in.failed();
}

// What stands for a backslash and this byte; NUL when nothing does.
char escaped(char c)
{
    switch (c) {
    case 'n': return '\n';
    case 't': return '\t';
    case ' ': return ' ';
    case '\\': return '\\';
    default: return '\0';
    }
}

// Replaces the escapes in place and leaves every other byte as it is, shift bytes and
// broken characters too; only a shifted run that the line leaves open is closed.
std::size_t decode(growing_text &text, const kulang &lang)
{
    char *const begin = text.bytes();
    char *const end = begin + text.length();
    char *out = begin;  // where the next byte goes
    char *rest = begin; // first byte not moved yet
    *end = '\0';
    kucursor source;
    locale::open_exact(&source, begin, SIZE_MAX, &lang, locale::cursor_mode::read);
    for (; locale::current(source) != '\0'; locale::step(source)) {
        if (locale::current(source) != '\\' || !locale::is_single(source)) continue;
        char *const backslash = begin + locale::offset(source);
        const char meant = escaped(backslash[1]);
        if (meant == '\0') return 0;
        locale::step(source);
        out = std::copy(rest, backslash, out);
        *out++ = meant;
        rest = backslash + 2;
    }
    out = std::copy(rest, end, out);
    if (source.shifted_kucursor != 0) *out++ = static_cast<char>(lang.shiftin_kulang);
    *out = '\0';
    return static_cast<std::size_t>(out - begin);
}

} // namespace

struct node {
    node *older;
    char *text; // decoded, NUL-terminated; owned
    std::size_t length;
    word name;
    word type;
    word charset; // empty: the file names none
};

struct tree {
    node *newest;
};

file find_file(const kuapp *application, const char *name, const char *type)
{
    for (; application != nullptr; application = application->next_kuapp) {
        if (application->messages_kuapp == nullptr) continue;
        scanner in(application->messages_kuapp);
        word charset;
        if (find_line(in, name, type, charset) && !ends_line(in.peek()))
            return {application->messages_kuapp};
    }
    return {};
}

tree *create_tree() { return static_cast<tree *>(std::calloc(1, sizeof(tree))); }

int read_resource(const file &from, const char *name, const char *type, tree *into,
                  const char *node_name)
{
    if (!from || std::strlen(node_name) >= word_size) return 1;
    scanner in(from.path);
    growing_text text;
    word charset;
    if (!find_line(in, name, type, charset) || !read_text(in, text)) return 1;
    const std::size_t length = decode(text, language(charset));
    if (length == 0) return 1;
    auto *made = static_cast<node *>(std::calloc(1, sizeof(node)));
    if (made == nullptr) return 1;
    made->text = text.take();
    made->length = length;
    std::strcpy(made->name, node_name);
    std::strcpy(made->type, type);
    std::memcpy(made->charset, charset, sizeof charset);
    made->older = into->newest;
    into->newest = made;
    return 0;
}

const node *find_node(const tree *in, const char *node_name)
{
    const node *at = in->newest;
    while (at != nullptr && std::strcmp(at->name, node_name) != 0) at = at->older;
    return at;
}

int text_length(const node *of, const char *type, std::int32_t *length)
{
    if (std::strcmp(of->type, type) != 0) return 1;
    *length = static_cast<std::int32_t>(of->length);
    return 0;
}

int fetch_text(const node *of, const char *type, std::uint32_t most, char *buffer,
               std::uint32_t *length, const char **character_set)
{
    if (std::strcmp(of->type, type) != 0) return 1;
    if (of->length <= most) {
        std::memcpy(buffer, of->text, of->length);
        *length = static_cast<std::uint32_t>(of->length);
    } else {
        const kulang lang = language(of->charset);
        kucursor target;
        locale::open_exact(&target, buffer, most, &lang, locale::cursor_mode::write);
        *length = locale::copy_text(target, of->text, most);
        *length += locale::close_shift(target);
    }
    if (character_set != nullptr) *character_set = of->charset;
    return 0;
}

tree *release_tree(tree *done)
{
    if (done == nullptr) return nullptr;
    while (done->newest != nullptr) {
        node *gone = done->newest;
        done->newest = gone->older;
        std::free(gone->text);
        std::free(gone);
    }
    std::free(done);
    return nullptr;
}

} // namespace ku::msgfile
