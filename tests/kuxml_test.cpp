// kuxml_test.cpp - memory callbacks, and the logs that undo what was allocated and locked

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kuxdn.h"
#include "kuxer.h"
#include "kuxml.h"
#include "kuxnl.h"
#include "kuxrl.h"
#include "kuxrm.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

// A context whose callbacks note what is alive and open; every resize moves.
class recorder
{
public:
    recorder()
    {
        kuxa attrs = {};
        attrs.kuxamask = KUXA_NMALL | KUXA_NMCLIENTDATA | KUXA_RMALL | KUXA_RMCLIENTDATA;
        attrs.kuxanmclientdata = attrs.kuxarmclientdata = this;
        attrs.kuxanmalloc = [](kux *of, uint32_t) { return mine(of).make(); };
        attrs.kuxanmfree = [](kux *of, void *block) { return mine(of).drop(block); };
        attrs.kuxanmrealloc = [](kux *of, void *block, uint32_t) { return mine(of).move(block); };
        attrs.kuxarmalloc = [](kux *of, uint32_t) { return handle(mine(of).make()); };
        attrs.kuxarmfree = [](kux *of, kuxhandle old) { return handle(mine(of).drop(old)); };
        attrs.kuxarmrealloc = [](kux *of, kuxhandle old, uint32_t) {
            return handle(mine(of).move(old));
        };
        attrs.kuxarmlock = [](kux *of, kuxhandle at) { return mine(of).open(at, 0); };
        attrs.kuxarmunlock = [](kux *of, kuxhandle at) { return mine(of).close(at, 0); };
        attrs.kuxarmbeginderef = [](kux *of, kuxhandle at) { return mine(of).open(at, 1); };
        attrs.kuxarmendderef = [](kux *of, kuxhandle at) { return mine(of).close(at, 1); };
        attrs.kuxarmgetstate = [](kux *, kuxhandle) { return uint16_t{5}; };
        ctx = kuxcreate(&attrs);
        streams = live;
    }
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;
    ~recorder()
    {
        kuxdestroy(ctx);
        while (!live.empty()) drop(*live.begin());
    }

    kux *ctx;
    std::set<void *> streams; // the context's own blocks
    std::set<void *> live;
    std::multiset<void *> locks[2]; // locked, dereferenced
    std::vector<void *> dropped;    // in order
    bool refusing = false;          // accesses give no address

private:
    static recorder &mine(kux *of) { return *static_cast<recorder *>(of->kuxnmclientdata); }
    static kuxhandle handle(void *block) { return static_cast<kuxhandle>(block); }

    void *make() { return *live.insert(std::calloc(1, 4096)).first; } // room for a stream
    void *drop(void *block)
    {
        EXPECT_EQ(live.erase(block), 1u) << "released what is not there";
        dropped.push_back(block);
        std::free(block);
        return nullptr;
    }
    void *move(void *block)
    {
        void *moved = make(); // before the old one goes: another address for sure
        drop(block);
        return moved;
    }
    void *open(void *handle, int how)
    {
        if (!refusing) locks[how].insert(handle);
        return refusing ? nullptr : handle;
    }
    void *close(void *handle, int how)
    {
        const auto found = locks[how].find(handle);
        if (found == locks[how].end())
            ADD_FAILURE() << "closed what is not open";
        else
            locks[how].erase(found);
        return nullptr;
    }
};

// What a frame would undo: blocks, handles, locked and dereferenced handles.
struct frame {
    std::vector<void *> noted[4];
};
enum { blocks, handles, locked, dereferenced };

// Forgets the newest note of this address, in the newest frame that has one.
void forget(std::vector<frame> &frames, int what, void *address)
{
    for (auto at = frames.rbegin(); at != frames.rend(); ++at) {
        auto &notes = at->noted[what];
        const auto found = std::find(notes.rbegin(), notes.rend(), address);
        if (found == notes.rend()) continue;
        notes.erase(std::next(found).base());
        return;
    }
}

} // namespace

// Frames are opened in one of `rarely` steps that could; long ones pair their records by a
// table, unless there is no memory for it.
static void framesasmodelled(uint32_t rarely, bool memory_is_short)
{
    recorder memory;
    kux *ctx = memory.ctx;
    ku::test::dice dice;
    std::vector<frame> frames(1);    // the first one stands for what is outside all frames
    std::set<void *> plain, movable; // alive by the model
    std::multiset<void *> open[2];   // by the model
    const auto any = [&](const std::set<void *> &from) {
        return *std::next(from.begin(), static_cast<long>(dice.below(from.size())));
    };
    const auto is_open = [&](void *handle) {
        return open[0].count(handle) + open[1].count(handle);
    };
    for (int step = 0; step < 8000; step++) {
        const uint32_t choice = dice.below(20);
        if (choice >= 16 && !dice.one_in(rarely)) continue;
        const bool closes = choice >= 18 && !plain.empty() && !movable.empty();
        ku::test::fail_basic_from_now(closes && memory_is_short);
        if (choice < 4 || plain.empty()) {
            void *block = kuxnlalloc(ctx, 8);
            plain.insert(block);
            frames.back().noted[blocks].push_back(block);
        } else if (choice < 7) {
            void *block = any(plain);
            EXPECT_EQ(kuxnlfree(ctx, block), nullptr);
            plain.erase(block);
            forget(frames, blocks, block);
        } else if (choice < 8) {
            void *block = any(plain), *moved = kuxnlrealloc(ctx, block, 16);
            plain.erase(block), plain.insert(moved);
            for (frame &each : frames)
                std::replace(each.noted[blocks].begin(), each.noted[blocks].end(), block, moved);
        } else if (choice < 10 || movable.empty()) {
            void *handle = kuxrlalloc(ctx, 8);
            movable.insert(handle);
            frames.back().noted[handles].push_back(handle);
        } else if (choice < 12) {
            auto *handle = static_cast<kuxhandle>(any(movable));
            const bool dereference = dice.one_in(2);
            (dereference ? kuxrlbeginderef : kuxrllock)(ctx, handle);
            open[dereference].insert(handle);
            frames.back().noted[locked + dereference].push_back(handle);
        } else if (choice < 14) {
            auto *handle = static_cast<kuxhandle>(any(movable));
            const bool dereference = dice.one_in(2);
            if (open[dereference].count(handle) == 0) continue;
            (dereference ? kuxrlendderef : kuxrlunlock)(ctx, handle);
            open[dereference].erase(open[dereference].find(handle));
            forget(frames, locked + dereference, handle);
        } else if (choice < 15) {
            void *handle = any(movable);
            if (is_open(handle) != 0) continue;
            void *moved = kuxrlrealloc(ctx, static_cast<kuxhandle>(handle), 16);
            movable.erase(handle), movable.insert(moved);
            for (frame &each : frames)
                std::replace(each.noted[handles].begin(), each.noted[handles].end(), handle, moved);
        } else if (choice < 16) {
            // A released handle takes its locks and dereferences with it.
            void *handle = any(movable);
            kuxrlfree(ctx, static_cast<kuxhandle>(handle));
            movable.erase(handle);
            for (auto &list : open) list.erase(handle);
            for (auto &list : memory.locks) list.erase(handle);
            for (frame &each : frames)
                for (auto &notes : each.noted) std::erase(notes, handle);
        } else if (choice < 18) {
            if (frames.size() > 6) continue;
            ASSERT_EQ(kuxmlbegin(ctx), 0u);
            frames.emplace_back();
        } else if (choice < 19) {
            kuxmlend(ctx); // outside all frames it forgets everything
            frames.pop_back();
            if (frames.empty()) frames.emplace_back();
        } else {
            kuxmlrollback(ctx);
            if (frames.size() == 1) continue; // outside all frames nothing happens
            for (void *block : frames.back().noted[blocks]) plain.erase(block);
            for (int how = 0; how < 2; how++)
                for (void *handle : frames.back().noted[locked + how])
                    open[how].erase(open[how].find(handle));
            for (void *handle : frames.back().noted[handles]) {
                movable.erase(handle);
                for (auto &list : open) list.erase(handle); // by an inner frame that was kept
                for (auto &list : memory.locks) list.erase(handle);
            }
            frames.pop_back();
        }
        std::set<void *> all = memory.streams;
        all.insert(plain.begin(), plain.end());
        all.insert(movable.begin(), movable.end());
        ASSERT_EQ(memory.live, all) << "step " << step;
        ASSERT_EQ(memory.locks[0], open[0]) << "step " << step;
        ASSERT_EQ(memory.locks[1], open[1]) << "step " << step;
    }
    ku::test::fail_basic_from_now(0);
    while (frames.size() > 1) kuxmlend(ctx), frames.pop_back();
    kuxmlend(ctx);
}

TEST(Kuxml, FramesUndoWhatAModelSaysTheyUndo)
{
    framesasmodelled(1, false);
    framesasmodelled(40, false);
    framesasmodelled(40, true);
}

TEST(Kuxml, AMillionRecordsAreClosedWithoutLookingForEachAmongAll)
{
    // Minutes each if every closing record looked through the others for its opening one.
    constexpr int count = 500000;
    static constexpr struct {
        const char *what;
        bool reverse;  // closed newest first
        bool outside;  // opened in an outer frame
        bool rollback; // of the frame that closes
    } rows[] = {
        {"in order", false, false, true},
        {"in reverse order", true, false, true},
        {"in order, opened outside", false, true, true},
        {"in order, opened outside and kept", false, true, false},
        {"in reverse order, opened outside and kept", true, true, false},
    };
    kux *ctx = kuxcreate(nullptr);
    std::vector<char> places(count + 1); // addresses to note; nothing is allocated
    std::vector<void *> undone;
    const kuxnmfreefn plain = ctx->kuxnmfree;
    ctx->kuxnmclientdata = ctx->kuxrmclientdata = &undone;
    ctx->kuxnmfree = [](kux *of, void *block) -> void * {
        static_cast<std::vector<void *> *>(of->kuxnmclientdata)->push_back(block);
        return nullptr;
    };
    ctx->kuxrmunlock = [](kux *of, kuxhandle handle) -> void * {
        static_cast<std::vector<void *> *>(of->kuxrmclientdata)->push_back(handle);
        return nullptr;
    };
    // Room at once: a sanitizer's realloc copies with each of the small steps.
    ctx->kuxnlsize = ctx->kuxrlsize = 2 * count + 10;
    const auto room = static_cast<std::size_t>(ctx->kuxnlsize);
    ctx->kuxnllog = static_cast<kuxnl *>(std::realloc(ctx->kuxnllog, room * sizeof(kuxnl)));
    ctx->kuxrllog = static_cast<kuxrl *>(std::realloc(ctx->kuxrllog, room * sizeof(kuxrl)));
    const auto note = [&](uint32_t plainly, uint32_t movably, int place) {
        void *address = &places[static_cast<std::size_t>(place)];
        kuxnllog(ctx, plainly, address, nullptr);
        kuxrlmlog(ctx, movably, static_cast<kuxhandle>(address), nullptr);
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        undone.clear();
        kuxmlbegin(ctx);
        for (int i = 0; i <= count; i++) note(KUXNL_ALLOC, KUXRL_LOCK, i);
        if (row.outside) kuxmlbegin(ctx);
        for (int i = 0; i < count; i++)
            note(KUXNL_FREE, KUXRL_UNLOCK, row.reverse ? count - 1 - i : i);
        if (row.outside) (row.rollback ? kuxmlrollback : kuxmlend)(ctx);
        kuxmlrollback(ctx);
        EXPECT_EQ(undone, std::vector<void *>(2, &places[count])); // what was never closed
        EXPECT_EQ(ctx->kuxnlnrecords + ctx->kuxrlnrecords, 0);
    }
    // Each block moves when it has just been made: the records before are not looked at.
    kuxmlbegin(ctx);
    for (int i = 0; i < count; i++) {
        note(KUXNL_ALLOC, KUXRL_ALLOC, i);
        kuxnllog(ctx, KUXNL_REALLOC, &places[static_cast<std::size_t>(i)], &places[count]);
        kuxnllog(ctx, KUXNL_FREE, &places[count], nullptr);
    }
    kuxmlend(ctx);
    ctx->kuxnmfree = plain;
    kuxdestroy(ctx);
}

TEST(Kuxml, RollbackReleasesNewestFirstAndEndsAccessBeforeIt)
{
    recorder memory;
    kux *ctx = memory.ctx;
    ASSERT_EQ(kuxmlbegin(ctx), 0u);
    void *first = kuxnlalloc(ctx, 1);
    void *second = kuxnlalloc(ctx, 1);
    kuxhandle handle = kuxrlalloc(ctx, 1);
    kuxrllock(ctx, handle);
    kuxmlrollback(ctx); // the recorder refuses to release nothing, the model nothing locked
    EXPECT_EQ(memory.dropped, (std::vector<void *>{second, first, handle}));
    EXPECT_TRUE(memory.locks[0].empty());
    EXPECT_EQ(ctx->kuxnlnrecords, 0);
    EXPECT_EQ(ctx->kuxrlnrecords, 0);
}

TEST(Kuxml, LogsGrowInStepsAndWithoutMemoryNothingIsDone)
{
    recorder memory;
    kux *ctx = memory.ctx;
    std::vector<void *> blocks;
    for (int record = 0; record < 50; record++) blocks.push_back(kuxnlalloc(ctx, 1));
    EXPECT_EQ(ctx->kuxnlsize, 50);

    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(kuxnlalloc(ctx, 1), nullptr);
    EXPECT_ERRORS(ctx, {"kuxml 1"});
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(kuxnlfree(ctx, blocks[0]), nullptr);
    EXPECT_ERRORS(ctx, {"kuxml 1"});
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(kuxmlbegin(ctx), KUXML_FULL);
    EXPECT_ERRORS(ctx, {"kuxml 1", "kuxml 1"}); // by the log and by the frame
    EXPECT_EQ(memory.live.size(), 53u);
    EXPECT_EQ(ctx->kuxnlnrecords, 50);
    EXPECT_EQ(ctx->kuxrlnrecords, 0); // no mark in the other log either

    kuxnlalloc(ctx, 1);
    EXPECT_EQ(ctx->kuxnlsize, 100);
    kuxhandle handle = kuxrlalloc(ctx, 1);
    while (ctx->kuxrlnrecords < 100) kuxrllock(ctx, handle);
    for (auto *access : {kuxrllock, kuxrlunlock, kuxrlbeginderef, kuxrlendderef}) {
        ku::test::fail_basic_from_now(1);
        EXPECT_EQ(access(ctx, handle), nullptr);
    }
    EXPECT_ERRORS(ctx, std::vector<std::string>(4, "kuxml 1"));
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(kuxrlfree(ctx, handle), nullptr);
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(kuxrlalloc(ctx, 1), nullptr);
    ku::test::fail_basic_from_now(0);
    EXPECT_ERRORS(ctx, {"kuxml 1", "kuxml 1"});
    EXPECT_EQ(memory.locks[0].size(), 99u);
    EXPECT_EQ(memory.live.size(), 55u);
    kuxrllock(ctx, handle);
    EXPECT_EQ(ctx->kuxrlsize, 200);
    kuxmlend(ctx);
}

TEST(Kuxml, SwitchedOffNothingIsNoted)
{
    recorder memory;
    kux *ctx = memory.ctx;
    kuxmlon(ctx); // without kuxmloff: ignored
    kuxmloff(ctx);
    kuxmloff(ctx);
    kuxmlon(ctx);
    EXPECT_EQ(ctx->kuxmldisabled, 1);
    EXPECT_EQ(kuxmlbegin(ctx), 0u);
    void *block = kuxnlalloc(ctx, 1);
    kuxhandle handle = kuxrlalloc(ctx, 1);
    kuxrllock(ctx, handle);
    kuxmlrollback(ctx);
    EXPECT_EQ(memory.live.size(), 5u);
    EXPECT_EQ(memory.locks[0].size(), 1u);
    kuxrlunlock(ctx, handle);
    kuxrlfree(ctx, handle);
    kuxnlfree(ctx, block);
    EXPECT_EQ(memory.live, memory.streams);
    EXPECT_EQ(ctx->kuxnlnrecords + ctx->kuxrlnrecords, 0);
    kuxmlon(ctx);
    kuxnlalloc(ctx, 1);
    EXPECT_EQ(ctx->kuxnlnrecords, 1);
    kuxmlend(ctx);
}

TEST(Kuxml, AccessThatGivesNoAddressIsReportedByTheWrappersAlone)
{
    recorder memory;
    kux *ctx = memory.ctx;
    kuxhandle handle = kuxrlalloc(ctx, 1);
    memory.refusing = true;
    EXPECT_EQ(kuxrmlock(ctx, handle), nullptr);
    EXPECT_EQ(kuxrmbeginderef(ctx, handle), nullptr);
    EXPECT_ERRORS(ctx, {"kuxrm 4", "kuxrm 1"});
    EXPECT_EQ(kuxrllock(ctx, handle), nullptr); // neither reported nor noted
    EXPECT_EQ(kuxrlbeginderef(ctx, handle), nullptr);
    EXPECT_ERRORS(ctx, {});
    EXPECT_EQ(ctx->kuxrlnrecords, 1);
    memory.refusing = false;
    EXPECT_EQ(kuxrmlock(ctx, handle), handle);
    EXPECT_EQ(kuxrmunlock(ctx, handle), nullptr);
    EXPECT_EQ(kuxrmgetstate(ctx, handle), 5);
    kuxmlend(ctx);
}

TEST(Kuxml, DefaultCallbacksZeroAndReportMissingMemory)
{
    kux *ctx = kuxcreate(nullptr);
    auto *block = static_cast<char *>(ctx->kuxnmalloc(ctx, 100));
    EXPECT_EQ(std::string(block, 100), std::string(100, '\0'));
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(ctx->kuxnmrealloc(ctx, block, 200), nullptr);
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(ctx->kuxnmalloc(ctx, 1), nullptr);
    ku::test::fail_basic_from_now(1);
    EXPECT_EQ(ctx->kuxnmrealloc(ctx, nullptr, 1), nullptr);
    EXPECT_ERRORS(ctx, {"kuxnm 2", "kuxnm 1", "kuxnm 2"});
    void *shrunk = ctx->kuxnmrealloc(ctx, block, 0); // 0 bytes is no release
    EXPECT_NE(shrunk, nullptr);
    EXPECT_EQ(ctx->kuxnmfree(ctx, shrunk), nullptr);

    kuxhandle handle = ctx->kuxrmalloc(ctx, 100);
    EXPECT_EQ(ctx->kuxrmgetstate(ctx, handle), KUXRM_DEREF);
    EXPECT_EQ(ctx->kuxrmlock(ctx, handle), ctx->kuxrmbeginderef(ctx, handle));
    handle = ctx->kuxrmrealloc(ctx, handle, 1000);
    EXPECT_EQ(ctx->kuxrmfree(ctx, handle), nullptr);
    EXPECT_ERRORS(ctx, {});
    kuxdestroy(ctx);
}
