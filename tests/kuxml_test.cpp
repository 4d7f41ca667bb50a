// kuxml_test.cpp - memory callbacks, and the logs that undo what was allocated and locked

#include <algorithm>
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

using ku::test::context;

namespace
{

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

void rename(std::vector<frame> &frames, int what, void *address, void *moved)
{
    for (frame &each : frames)
        std::replace(each.noted[what].begin(), each.noted[what].end(), address, moved);
}

// Frames are opened in one of `rarely` steps that could; long ones pair their records by a
// table, unless there is no memory for it. The context tells of a block or an access that
// is undone twice, or by the end not at all.
void frames_as_modelled(uint32_t rarely, bool memory_is_short)
{
    context ctx;
    ku::test::dice dice;
    const int own = ctx.live();
    std::vector<frame> frames(1); // the first one stands for what is outside all frames
    std::set<void *> plain;       // alive by the model
    std::set<kuxhandle> movable;
    std::multiset<kuxhandle> open[2]; // locked, dereferenced
    const auto any = [&](const auto &from) {
        return *std::next(from.begin(), static_cast<long>(dice.below(from.size())));
    };
    const auto close = [&](kuxhandle handle, int how) { open[how].erase(open[how].find(handle)); };
    // Past the log: a handle that goes takes what is noted of its accesses with it.
    const auto close_all = [&](kuxhandle handle) {
        for (int how = 0; how < 2; how++)
            for (; open[how].count(handle) > 0; close(handle, how))
                (how != 0 ? ctx->kuxrmendderef : ctx->kuxrmunlock)(ctx, handle);
    };
    for (int step = 0; step < 8000; step++) {
        const uint32_t choice = dice.below(20);
        const kuxhandle handle = movable.empty() ? nullptr : any(movable);
        const int how = handle != nullptr && kuxrmgetstate(ctx, handle) != 0 && dice.one_in(2);
        const bool opened = open[0].count(handle) + open[1].count(handle) > 0;
        if (choice >= 16 && !dice.one_in(rarely)) continue;
        const bool closes = choice >= 18 && !plain.empty() && !movable.empty();
        ku::test::fail_basic_from_now(closes && memory_is_short);
        if (choice < 4 || plain.empty()) {
            frames.back().noted[blocks].push_back(*plain.insert(kuxnlalloc(ctx, 8)).first);
        } else if (choice < 7) {
            void *block = any(plain);
            EXPECT_EQ(kuxnlfree(ctx, block), nullptr);
            plain.erase(block);
            forget(frames, blocks, block);
        } else if (choice < 8) {
            void *block = any(plain), *moved = kuxnlrealloc(ctx, block, 16);
            plain.erase(block), plain.insert(moved);
            rename(frames, blocks, block, moved);
        } else if (choice < 10 || handle == nullptr) {
            frames.back().noted[handles].push_back(*movable.insert(kuxrlalloc(ctx, 8)).first);
        } else if (choice < 12) {
            (how != 0 ? kuxrlbeginderef : kuxrllock)(ctx, handle);
            open[how].insert(handle);
            frames.back().noted[locked + how].push_back(handle);
        } else if (choice < 14) {
            if (open[how].count(handle) == 0) continue;
            (how != 0 ? kuxrlendderef : kuxrlunlock)(ctx, handle);
            close(handle, how);
            forget(frames, locked + how, handle);
        } else if (choice < 15 && !opened) {
            const kuxhandle moved = kuxrlrealloc(ctx, handle, 16);
            movable.erase(handle), movable.insert(moved);
            rename(frames, handles, handle, moved);
        } else if (choice < 16) {
            close_all(handle);
            kuxrlfree(ctx, handle);
            movable.erase(handle);
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
        } else if (frames.size() == 1) {
            kuxmlrollback(ctx); // outside all frames nothing happens
        } else {
            const frame undone = frames.back();
            frames.pop_back();
            for (void *block : undone.noted[blocks]) plain.erase(block);
            for (int each = 0; each < 2; each++)
                for (void *closed : undone.noted[locked + each])
                    close(static_cast<kuxhandle>(closed), each);
            for (void *address : undone.noted[handles]) {
                close_all(static_cast<kuxhandle>(address)); // opened in inner frames, kept
                movable.erase(static_cast<kuxhandle>(address));
            }
            kuxmlrollback(ctx);
        }
        const std::size_t alive = plain.size() + movable.size();
        ASSERT_EQ(static_cast<std::size_t>(ctx.live() - own), alive) << "step " << step;
        ASSERT_FALSE(testing::Test::HasFailure()) << "step " << step;
    }
    ku::test::fail_basic_from_now(0);
    while (frames.size() > 1) kuxmlend(ctx), frames.pop_back();
    kuxmlend(ctx);
    for (const kuxhandle handle : open[0]) kuxrlunlock(ctx, handle);
    for (const kuxhandle handle : open[1]) kuxrlendderef(ctx, handle);
    for (const kuxhandle handle : movable) kuxrlfree(ctx, handle);
    for (void *block : plain) kuxnlfree(ctx, block);
    kuxmlend(ctx);
}

// A context that notes what is undone; only addresses are logged, nothing is allocated.
class undoing
{
public:
    undoing() : ctx(kuxcreate(nullptr)), free_(ctx->kuxnmfree)
    {
        ctx->kuxnmclientdata = ctx->kuxrmclientdata = &undone;
        ctx->kuxnmfree = [](kux *of, void *block) { return note(of, block); };
        ctx->kuxrmfree = [](kux *of, kuxhandle handle) {
            return static_cast<kuxhandle>(note(of, handle));
        };
        ctx->kuxrmunlock = [](kux *of, kuxhandle handle) { return note(of, handle); };
    }
    undoing(const undoing &) = delete;
    undoing &operator=(const undoing &) = delete;
    ~undoing()
    {
        ctx->kuxnmfree = free_;
        kuxdestroy(ctx);
    }
    void log(uint32_t plainly, uint32_t movably, void *address)
    {
        kuxnllog(ctx, plainly, address, nullptr);
        kuxrlmlog(ctx, movably, static_cast<kuxhandle>(address), nullptr);
    }

    kux *ctx;
    std::vector<void *> undone;

private:
    static void *note(kux *of, void *address)
    {
        static_cast<std::vector<void *> *>(of->kuxnmclientdata)->push_back(address);
        return nullptr;
    }
    kuxnmfreefn free_;
};

} // namespace

TEST(Kuxml, FramesUndoWhatAModelSaysTheyUndo)
{
    frames_as_modelled(1, false);
    frames_as_modelled(40, false);
    frames_as_modelled(40, true);
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
    undoing log;
    kux *ctx = log.ctx;
    std::vector<char> places(count + 1); // addresses to note
    // Room at once: a sanitizer's realloc copies with each of the small steps.
    ctx->kuxnlsize = ctx->kuxrlsize = 2 * count + 10;
    const auto room = static_cast<std::size_t>(ctx->kuxnlsize);
    ctx->kuxnllog = static_cast<kuxnl *>(std::realloc(ctx->kuxnllog, room * sizeof(kuxnl)));
    ctx->kuxrllog = static_cast<kuxrl *>(std::realloc(ctx->kuxrllog, room * sizeof(kuxrl)));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        log.undone.clear();
        kuxmlbegin(ctx);
        for (char &place : places) log.log(KUXNL_ALLOC, KUXRL_LOCK, &place);
        if (row.outside) kuxmlbegin(ctx);
        for (int i = 0; i < count; i++)
            log.log(KUXNL_FREE, KUXRL_UNLOCK, places.data() + (row.reverse ? count - 1 - i : i));
        if (row.outside) (row.rollback ? kuxmlrollback : kuxmlend)(ctx);
        kuxmlrollback(ctx);
        EXPECT_EQ(log.undone, std::vector<void *>(2, &places[count])); // what was never closed
        EXPECT_EQ(ctx->kuxnlnrecords + ctx->kuxrlnrecords, 0);
    }
    // Each block moves when it has just been made: the records before are not looked at.
    kuxmlbegin(ctx);
    for (int i = 0; i < count; i++) {
        log.log(KUXNL_ALLOC, KUXRL_ALLOC, places.data() + i);
        kuxnllog(ctx, KUXNL_REALLOC, places.data() + i, &places[count]);
        kuxnllog(ctx, KUXNL_FREE, &places[count], nullptr);
    }
    kuxmlend(ctx);
}

TEST(Kuxml, RollbackUndoesTheNewestFirst)
{
    undoing log;
    char places[3];
    ASSERT_EQ(kuxmlbegin(log.ctx), 0u);
    for (char &place : places) log.log(KUXNL_ALLOC, KUXRL_ALLOC, &place);
    kuxrlmlog(log.ctx, KUXRL_LOCK, static_cast<kuxhandle>(static_cast<void *>(places)), nullptr);
    kuxmlrollback(log.ctx);
    EXPECT_EQ(log.undone, (std::vector<void *>{places + 2, places + 1, places, places, places + 2,
                                               places + 1, places}));
    EXPECT_EQ(log.ctx->kuxnlnrecords + log.ctx->kuxrlnrecords, 0);
}

TEST(Kuxml, LogsGrowInStepsAndWithoutMemoryNothingIsDone)
{
    context ctx;
    void *block = kuxnlalloc(ctx, 1);
    kuxhandle handle = kuxrlalloc(ctx, 1);
    while (ctx->kuxnlnrecords < 50) kuxnllog(ctx, KUXNL_ALLOC, &ctx, nullptr);
    while (ctx->kuxrlnrecords < 100) kuxrllock(ctx, handle);
    const int live = ctx.live();
    const auto refused = [](const auto &call) {
        ku::test::fail_basic_from_now(1);
        EXPECT_EQ(call(), nullptr);
        ku::test::fail_basic_from_now(0);
    };
    refused([&] { return kuxnlalloc(ctx, 1); });
    refused([&] { return kuxnlfree(ctx, block); });
    refused([&] { return kuxrlalloc(ctx, 1); });
    refused([&] { return kuxrlfree(ctx, handle); });
    for (auto *access : {kuxrllock, kuxrlunlock, kuxrlbeginderef, kuxrlendderef})
        refused([&] { return access(ctx, handle); });
    kuxnllog(ctx, KUXNL_FREE, &ctx, nullptr); // only the other log is full now
    refused([&]() -> void * { return kuxmlbegin(ctx) == KUXML_FULL ? nullptr : block; });
    EXPECT_ERRORS(ctx, std::vector<std::string>(10, "kuxml 1")); // the last by log and frame
    EXPECT_EQ(ctx.live(), live);
    EXPECT_EQ(ctx->kuxnlnrecords, 51); // no mark in the log that had room
    EXPECT_EQ(ctx->kuxrlnrecords, 100);
    for (int locks = 1; locks < 100; locks++) kuxrlunlock(ctx, handle);
    EXPECT_EQ(ctx->kuxnlsize, 100);
    EXPECT_EQ(ctx->kuxrlsize, 200);
    kuxnlfree(ctx, block);
    kuxrlfree(ctx, handle);
    kuxmlend(ctx);
}

TEST(Kuxml, SwitchedOffNothingIsNoted)
{
    context ctx;
    kuxmlon(ctx); // without kuxmloff: ignored
    kuxmloff(ctx);
    kuxmloff(ctx);
    kuxmlon(ctx);
    EXPECT_EQ(ctx->kuxmldisabled, 1);
    EXPECT_EQ(kuxmlbegin(ctx), 0u);
    void *block = kuxnlalloc(ctx, 1);
    kuxhandle handle = kuxrlalloc(ctx, 1);
    kuxrllock(ctx, handle);
    kuxmlrollback(ctx); // the context would tell if it undid anything
    kuxrlunlock(ctx, handle);
    kuxrlfree(ctx, handle);
    kuxnlfree(ctx, block);
    EXPECT_EQ(ctx->kuxnlnrecords + ctx->kuxrlnrecords, 0);
    kuxmlon(ctx);
    kuxnlfree(ctx, kuxnlalloc(ctx, 1));
    EXPECT_EQ(ctx->kuxnlnrecords, 2);
    kuxmlend(ctx);
}

TEST(Kuxml, AccessThatGivesNoAddressIsReportedByTheWrappersAlone)
{
    context ctx;
    kuxhandle handle = kuxrlalloc(ctx, 1);
    for (auto *access : {kuxrmlock, kuxrmbeginderef, kuxrllock, kuxrlbeginderef}) {
        ctx.fail_access_from_now(1);
        EXPECT_EQ(access(ctx, handle), nullptr);
    }
    EXPECT_ERRORS(ctx, {"kuxrm 4", "kuxrm 1"}); // the logged ones neither report nor note it
    EXPECT_EQ(ctx->kuxrlnrecords, 1);
    EXPECT_NE(kuxrmlock(ctx, handle), nullptr);
    EXPECT_EQ(kuxrmunlock(ctx, handle), nullptr);
    kuxrlfree(ctx, handle);
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
