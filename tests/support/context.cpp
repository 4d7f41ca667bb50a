// context.cpp - the memory behind the tests' contexts
#include "support/context.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "port/locale/locale.h"
#include "support/random.h"

extern "C" void *__real_malloc(std::size_t size); // the C library's, never made to fail

namespace ku::test
{

// Every block alive, by address; handles are blocks of their own kind.
class memory
{
public:
    struct cell {         // what a handle points to
        void *no_address; // never the block: who reads through the handle without access finds this
        char *block = nullptr;
        uint32_t size = 0;
        int locks = 0;
        int dereferences = 0;
        bool may_dereference = false;
    };

    static memory &of(kux *ctx) { return *static_cast<memory *>(ctx->kuxnmclientdata); }
    ~memory()
    {
        for (auto &block : plain_) std::free(block.first);
        for (auto &handle : cells_) {
            std::free(handle.second->block);
            delete handle.second;
        }
    }

    int live() const { return static_cast<int>(plain_.size() + cells_.size()); }
    std::string sizes() const
    {
        std::string text;
        for (const auto &block : plain_) text += " " + std::to_string(block.second);
        for (const auto &handle : cells_) text += " r" + std::to_string(handle.second->size);
        return text;
    }
    bool locked() const
    {
        return std::any_of(cells_.begin(), cells_.end(), [](const auto &handle) {
            return handle.second->locks + handle.second->dereferences > 0;
        });
    }

    void *allocate(uint32_t size)
    {
        if (refuses(size)) return nullptr;
        void *block = fresh(size);
        std::memset(block, 0, size);
        plain_[block] = size;
        return block;
    }
    void release(void *block)
    {
        const auto found = plain_.find(block);
        if (found == plain_.end()) {
            ADD_FAILURE() << "release of what is no live block";
            return;
        }
        poison(block, found->second);
        plain_.erase(found);
    }
    void *resize(void *block, uint32_t size)
    {
        if (block == nullptr) return allocate(size);
        const auto found = plain_.find(block);
        if (found == plain_.end()) {
            ADD_FAILURE() << "resize of what is no live block";
            return nullptr;
        }
        if (refuses(size)) return nullptr;
        void *moved = copy(block, found->second, size);
        release(block);
        plain_[moved] = size;
        return moved;
    }

    kuxhandle handle_allocate(uint32_t size)
    {
        if (refuses(size)) return nullptr;
        auto *made = new cell;
        made->no_address = made; // an address, but of no text
        made->block = static_cast<char *>(fresh(size));
        std::memset(made->block, 0, size);
        made->size = size;
        made->may_dereference = handles_made_++ % 2 == 0;
        auto *handle = &made->no_address;
        cells_[handle] = made;
        return handle;
    }
    void handle_release(kuxhandle handle)
    {
        cell *found = find(handle);
        if (found == nullptr) return;
        if (found->locks + found->dereferences > 0) ADD_FAILURE() << "release of a locked handle";
        poison(found->block, found->size);
        cells_.erase(handle);
        delete found;
    }
    kuxhandle handle_resize(kuxhandle handle, uint32_t size)
    {
        if (handle == nullptr) return handle_allocate(size);
        cell *found = find(handle);
        if (found == nullptr || refuses(size)) return nullptr;
        if (found->locks + found->dereferences > 0) ADD_FAILURE() << "resize of a locked handle";
        move(*found, size);
        auto *moved = new cell(*found); // the handle moves as well
        moved->no_address = moved;
        cells_.erase(handle);
        delete found;
        cells_[&moved->no_address] = moved;
        return &moved->no_address;
    }
    void *open(kuxhandle handle, int cell::*count)
    {
        cell *found = find(handle);
        if (found == nullptr || due(access_countdown_)) return nullptr;
        if (count == &cell::dereferences && !found->may_dereference)
            ADD_FAILURE() << "dereference of a handle that must be locked";
        ++(found->*count);
        return found->block;
    }
    void close(kuxhandle handle, int cell::*count)
    {
        cell *found = find(handle);
        if (found == nullptr) return;
        if (found->*count == 0) {
            ADD_FAILURE() << "unlock, or end of a dereference, without its beginning";
            return;
        }
        --(found->*count);
        if (found->locks + found->dereferences == 0) move(*found, found->size);
    }
    uint16_t state(kuxhandle handle)
    {
        const cell *found = find(handle);
        return found != nullptr && found->may_dereference ? KUXRM_DEREF : 0;
    }

    int countdown_ = 0;        // allocations until the one that fails; 0: none fails
    int access_countdown_ = 0; // the same for locks and dereferences
    unsigned one_in_ = 0;
    int spared_ = 0;
    bool failed_ = false;

private:
    bool due(int &countdown)
    {
        if (spared_ > 0 || countdown == 0 || --countdown > 0) return false;
        failed_ = true;
        return true;
    }
    bool refuses(uint32_t size)
    {
        constexpr uint32_t machine = 512u << 20; // bytes; more is refused as on a full machine
        if (size > machine || due(countdown_)) return true;
        if (spared_ > 0 || one_in_ == 0 || chance_.below(one_in_) != 0) return false;
        failed_ = true;
        return true;
    }
    // Not what the basic allocator calls: tests make that fail by itself.
    static void *fresh(uint32_t size) { return __real_malloc(size != 0 ? size : 1); }
    static void poison(void *block, uint32_t size)
    {
        std::memset(block, 0xdd, size);
        std::free(block);
    }
    static void *copy(const void *block, uint32_t old_size, uint32_t size)
    {
        void *moved = fresh(size);
        std::memset(moved, 0xcd, size);
        std::memcpy(moved, block, std::min(old_size, size));
        return moved;
    }
    static void move(cell &handle, uint32_t size)
    {
        void *moved = copy(handle.block, handle.size, size);
        poison(handle.block, handle.size);
        handle.block = static_cast<char *>(moved);
        handle.size = size;
    }
    cell *find(kuxhandle handle)
    {
        const auto found = cells_.find(handle);
        if (found != cells_.end()) return found->second;
        ADD_FAILURE() << "not a live handle";
        return nullptr;
    }

    std::map<void *, uint32_t> plain_; // sizes in bytes
    std::map<kuxhandle, cell *> cells_;
    unsigned handles_made_ = 0;
    dice chance_;
};

namespace
{

kuxa attributes(memory &blocks, int errors)
{
    kuxa attrs = {};
    attrs.kuxamask = KUXA_ERSIZE | KUXA_NMALL | KUXA_NMCLIENTDATA | KUXA_RMALL | KUXA_RMCLIENTDATA;
    attrs.kuxaersize = errors;
    attrs.kuxanmclientdata = attrs.kuxarmclientdata = &blocks;
    attrs.kuxanmalloc = [](kux *ctx, uint32_t size) { return memory::of(ctx).allocate(size); };
    attrs.kuxanmfree = [](kux *ctx, void *block) -> void * {
        if (block != nullptr) memory::of(ctx).release(block);
        return nullptr;
    };
    attrs.kuxanmrealloc = [](kux *ctx, void *block, uint32_t size) {
        return memory::of(ctx).resize(block, size);
    };
    attrs.kuxarmalloc = [](kux *ctx, uint32_t size) {
        return memory::of(ctx).handle_allocate(size);
    };
    attrs.kuxarmfree = [](kux *ctx, kuxhandle handle) -> kuxhandle {
        if (handle != nullptr) memory::of(ctx).handle_release(handle);
        return nullptr;
    };
    attrs.kuxarmrealloc = [](kux *ctx, kuxhandle handle, uint32_t size) {
        return memory::of(ctx).handle_resize(handle, size);
    };
    attrs.kuxarmlock = [](kux *ctx, kuxhandle handle) {
        return memory::of(ctx).open(handle, &memory::cell::locks);
    };
    attrs.kuxarmunlock = [](kux *ctx, kuxhandle handle) -> void * {
        memory::of(ctx).close(handle, &memory::cell::locks);
        return nullptr;
    };
    attrs.kuxarmbeginderef = [](kux *ctx, kuxhandle handle) {
        return memory::of(ctx).open(handle, &memory::cell::dereferences);
    };
    attrs.kuxarmendderef = [](kux *ctx, kuxhandle handle) -> void * {
        memory::of(ctx).close(handle, &memory::cell::dereferences);
        return nullptr;
    };
    attrs.kuxarmgetstate = [](kux *ctx, kuxhandle handle) { return memory::of(ctx).state(handle); };
    return attrs;
}

std::vector<std::string> stack(kux *ctx)
{
    std::vector<std::string> errors;
    for (int i = 0; i < kuxernerrors(ctx); i++) errors.push_back(spelled(*kuxerget(ctx, i)));
    return errors;
}

} // namespace

context::context(const char *language, int errors) : memory_(new memory)
{
    const kuxa attrs = attributes(*memory_, errors);
    ctx_ = kuxcreate(&attrs);
    if (ctx_ == nullptr) {
        ADD_FAILURE() << "no context";
        std::abort();
    }
    locale::fill_named(ctx_->kuxlangidh, &ctx_->kuxlocglo, language);
    created_ = live();
}

context::~context()
{
    fail_from_now(0);
    fail_access_from_now(0);
    fail_one_in(0);
    const int token_buffer = ctx_->kuxtoklen != 0 ? 1 : 0; // the context's own, made when needed
    const int left = live() - created_ - token_buffer;
    if (!testing::Test::HasFatalFailure()) { // else the test has given up half-way
        EXPECT_EQ(left, 0) << "blocks left, bytes:" << memory_->sizes();
        EXPECT_FALSE(memory_->locked());
        EXPECT_TRUE(asked_ || kuxernerrors(ctx_) == 0)
            << "nobody asked for " << testing::PrintToString(stack(ctx_));
    }
    kuxdestroy(ctx_);
    EXPECT_EQ(live(), left) << "the context's own blocks left, bytes:" << memory_->sizes();
}

int context::live() const { return memory_->live(); }

void context::fail_from_now(int n)
{
    memory_->countdown_ = n;
    memory_->failed_ = memory_->failed_ && n == 0;
}

bool context::failed() const { return memory_->failed_; }

void context::fail_access_from_now(int n)
{
    memory_->access_countdown_ = n;
    memory_->failed_ = memory_->failed_ && n == 0;
}

void context::fail_one_in(unsigned n) { memory_->one_in_ = n; }

std::vector<std::string> context::errors() const
{
    asked_ = true;
    return stack(ctx_);
}

void context::clear() { kuxerclear(ctx_); }

spared::spared(const context &ctx) : memory_(*ctx.memory_) { memory_.spared_++; }
spared::~spared() { memory_.spared_--; }

kuxhandle relocatable(const context &ctx, std::string_view text)
{
    const spared here(ctx);
    const kuxhandle handle = ctx->kuxrmalloc(ctx, static_cast<uint32_t>(text.size()) + 1);
    std::memcpy(ctx->kuxrmlock(ctx, handle), text.data(), text.size());
    ctx->kuxrmunlock(ctx, handle);
    return handle;
}

std::string text(const context &ctx, kuxhandle handle)
{
    if (handle == nullptr) {
        ADD_FAILURE() << "no handle to read a text from";
        return "";
    }
    const spared here(ctx);
    std::string copy = static_cast<const char *>(ctx->kuxrmlock(ctx, handle));
    ctx->kuxrmunlock(ctx, handle);
    return copy;
}

std::string spelled(uint32_t code)
{
    std::string letters;
    for (int shift = 27; shift >= 7; shift -= 5)
        letters += static_cast<char>('a' + (code >> shift & 31));
    return letters + " " + std::to_string(code & 127);
}

std::string spelled(const kuxer &record)
{
    std::string all = spelled(record.kuxercode);
    for (int i = 0; i < record.kuxernparams; i++)
        all += (i == 0 ? "(" : ", ") + std::string(record.kuxerparams[i]);
    return record.kuxernparams > 0 ? all + ")" : all;
}

void expect_errors(const char *file, int line, kux *ctx, const std::vector<std::string> &expected)
{
    const std::vector<std::string> found = stack(ctx);
    if (found != expected)
        ADD_FAILURE_AT(file, line) << "errors: " << testing::PrintToString(found)
                                   << "\nexpected: " << testing::PrintToString(expected);
    kuxerclear(ctx);
}

} // namespace ku::test
