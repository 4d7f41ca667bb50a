// kudcd_test.cpp - rows of the query data cache, and parts of their long values
#include "kudcd.h"

#include <algorithm>
#include <map>

#include "kudc_internal.h"
#include "kudx.h"
#include "kulong.h"
#include "skudcd.h"
#include "support/random.h"
#include "support/rows.h"
#include "support/sweep.h"

using ku::test::cache;
using ku::test::context;
using ku::test::dice;
using ku::test::thread;
using ku::test::word;
using strings = std::vector<std::string>;

static constexpr uint32_t text = KUDC_CHARACTER;

// A client's long value that writes down every piece: "read 0 10240".
struct long_value {
    static uint32_t read(kuapp *, kulong *value, void *to, uint32_t offset, uint32_t length)
    {
        auto *self = static_cast<long_value *>(value->data_kulong);
        self->note("read", offset, length);
        if (self->refused) return 7;
        self->bytes.copy(static_cast<char *>(to), length, offset);
        return 0;
    }
    static uint32_t write(kuapp *, kulong *value, const void *from, uint32_t offset,
                          uint32_t length)
    {
        auto *self = static_cast<long_value *>(value->data_kulong);
        self->note("write", offset, length);
        if (self->refused) return 7;
        if (offset == 0) self->bytes.clear();
        EXPECT_EQ(self->bytes.size(), offset);
        self->bytes.append(static_cast<const char *>(from), length);
        return 0;
    }
    void note(const char *what, uint32_t offset, uint32_t length)
    {
        pieces.push_back(std::string(what) + " " + std::to_string(offset) + " "
                         + std::to_string(length));
    }
    // Makes it the current value of a column.
    void of(ku::test::column &column)
    {
        column.def.segm_kudxcol = 1;
        column.def.curval_kudxcol = &handle;
        column.def.curlen_kudxcol = static_cast<uint32_t>(bytes.size());
    }

    std::string bytes;
    strings pieces;
    bool refused = false;
    kulong handle = {read, write, this};
};

static std::string pattern(std::size_t length, unsigned seed)
{
    std::string bytes(length, '\0');
    for (char &byte : bytes) byte = static_cast<char>(seed = (seed * 1103515245 + 12345) & 0xFFFF);
    return bytes;
}

static kuapp *application() { return reinterpret_cast<kuapp *>(&application); }

// Stores the current values. Returns the position, or -1 with the code on the stack.
static int32_t stored(const cache &held, std::size_t thread = 0)
{
    const int32_t position = held.acmp->nxdo_kudcacc;
    return kudcdstr(held.acmp, held.thread_of(thread)) == 0 ? position : -1;
}

TEST(Kudcd, ARowIsTheSameBytesInOneMoveAndFieldByField)
{
    for (const bool buffered : {true, false}) {
        SCOPED_TRACE(buffered);
        context ctx;
        thread rows({{text, 10}, {KUDC_INTEGER, 4}, {KUDC_RAW, 3}});
        rows.with(KUDC_DYNBRK, {{0, 0}}).with(KUDC_DYNBRK, {{0, 0}, {1, 1}});
        thread wide({{text, 9000}}); // makes the row buffer larger than these rows
        const cache held(ctx, {&rows, &wide});
        kudcthddef *of = held.thread_of();
        ASSERT_EQ(of->idlc_kudcthd, 5);
        if (!buffered) of->useb_kudcthd = 0;
        held.put(held.acmp->datf_kudcacc, 0, std::string(10000, '?'));

        of->trch_kudcthd.stat_kudcrch = 0x1234;
        of->trch_kudcthd.delp_kudcrch = 1;
        for (int32_t i = 0; i < 5; i++) of->idxl_kudcthd[i].next_kudclnk = i == 3 ? 77 : -1;
        of->delp_kudcthd[0] = 1;
        of->delp_kudcthd[1] = 2;
        rows.set({"abcd", word(-2), ""});
        rows[2].set_null();
        EXPECT_EQ(stored(held), 0);
        const std::string links = word(-1) + word(-1) + word(-1) + word(77) + word(-1);
        const std::string columns =
            word(4) + '\0' + "abcd" + word(4) + '\0' + word(-2) + word(0) + '\xFF';
        const auto row = [&](int32_t next, int status) {
            return word(63) + word(-1) + word(next) + word(status, 2) + word(1, 2) + links
                   + word(1, 2) + word(2, 2) + columns;
        };
        EXPECT_EQ(held.data(0, 64), row(-1, 0x1234) + "?") << "exactly the record is written";
        EXPECT_EQ(held.acmp->nxdo_kudcacc, 63);
        EXPECT_EQ(of->tpln_kudcthd, 8u);
        EXPECT_EQ(rows[0].def.filpos_kudxcol, 45u);
        EXPECT_EQ(rows[1].def.filpos_kudxcol, 54u);

        rows.set({"second", "", "xyz"});
        EXPECT_EQ(stored(held), 63);
        rows.set({"", "", ""});
        for (std::size_t i = 0; i < 3; i++) rows[i].set_null();
        const int32_t third = stored(held);
        EXPECT_EQ(held.acmp->nxdo_kudcacc - third, 16 + 20 + 4 + 15) << "only the fixed part";
        EXPECT_EQ(held.data(0, 63), row(63, 0x1234));
        EXPECT_EQ(held.data(63 + 4, 8), word(0) + word(third));
        EXPECT_EQ(held.data(third + 4, 8), word(63) + word(-1));
        EXPECT_EQ(of->frst_kudcthd, 0);
        EXPECT_EQ(of->last_kudcthd, third);

        // Read the first, change what a deletion changes, write it over itself.
        rows[0].def.cngb_kudxcol = 1;
        of->idxl_kudcthd[3].next_kudclnk = 0;
        ASSERT_EQ(kudcdrd(held.acmp, of, 0), 0u);
        EXPECT_EQ(rows.values(), (strings{"abcd", word(-2), ""}));
        EXPECT_EQ(rows[2].def.curnul_kudxcol, KUDC_NULL);
        EXPECT_EQ(rows[0].def.curnul_kudxcol, 0);
        EXPECT_EQ(rows[0].def.cngb_kudxcol, 0);
        EXPECT_EQ(rows[1].def.filpos_kudxcol, 54u);
        EXPECT_EQ(of->idxl_kudcthd[3].next_kudclnk, 77);
        EXPECT_EQ(of->delp_kudcthd[1], 2);
        EXPECT_EQ(of->trch_kudcthd.next_kudcrch, 63);
        EXPECT_EQ(of->tpln_kudcthd, 8u);
        of->trch_kudcthd.stat_kudcrch = 7;
        EXPECT_EQ(kudcdupd(held.acmp, of, 0), 0u);
        EXPECT_EQ(held.data(0, 63), row(63, 7));
        ASSERT_EQ(kudcdrd(held.acmp, of, 63), 0u);
        EXPECT_EQ(rows.values(), (strings{"second", "", "xyz"}));

        kudcrchdef head;
        rows.set({"kept"});
        ASSERT_EQ(ku::cache::read_row_head(held.acmp, of, third), 0u);
        EXPECT_EQ(of->trch_kudcthd.prev_kudcrch, 63);
        EXPECT_EQ(rows[0].value(), "kept");
        unsigned char bytes[11] = {};
        kudcbvadef value = {};
        value.val_kudcbva = bytes;
        kudcbvadef *const values[] = {nullptr, nullptr, &value};
        ASSERT_EQ(kudcdrbv(held.acmp, of, values, 63, &head), 0u);
        EXPECT_EQ(head.next_kudcrch, third);
        EXPECT_EQ(of->tpln_kudcthd, 9u) << "columns that are passed over count";
        EXPECT_EQ(std::string(bytes, bytes + value.len_kudcbva), "xyz");
        ASSERT_EQ(kudcdrbv(held.acmp, of, values, 0, &head), 0u);
        EXPECT_EQ(value.valnul_kudcbva, KUDC_NULL);
        EXPECT_EQ(rows[0].value(), "kept");
    }
}

TEST(Kudcd, WhatCannotBeStoredChangesNothing)
{
    context ctx;
    thread rows({{text, 10}, {KUDC_RAW, 10}, {KUDC_RAW, 70000}}); // no row buffer
    rows.with(KUDC_RANDOM, {{0, 0}, {1, 1}});
    thread shorts({{KUDC_LONG, 10}, {KUDC_RAW, 10}});
    const cache held(ctx, {&rows, &shorts});
    ASSERT_EQ(held.status, 0u);
    const auto refused = [&](std::size_t number, uint32_t code) {
        const kudcaccdef before = *held.acmp;
        const kudcthddef thread = *held.thread_of(number);
        EXPECT_EQ(kudcdstr(held.acmp, held.thread_of(number)), code);
        EXPECT_ERRORS(ctx, {ku::test::spelled(code)});
        EXPECT_EQ(std::memcmp(&before, held.acmp, sizeof before), 0);
        EXPECT_EQ(std::memcmp(&thread, held.thread_of(number), sizeof thread), 0);
    };
    shorts.set({std::string(11, 'x'), "y"}); // a terminator is allowed
    EXPECT_EQ(stored(held, 1), 0);
    for (const bool null : {false, true}) {
        shorts[1].def.curlen_kudxcol = 11;
        shorts[1].def.curnul_kudxcol = null ? KUDC_NULL : 0;
        refused(1, KUDCA_TOOLONG);
    }
    shorts[1].def.maxlen_kudxcol = 20; // of no effect now
    refused(1, KUDCA_TOOLONG);
    shorts[1].set("y");
    shorts[1].def.segm_kudxcol = 1;
    refused(1, KUVAA_NOVALUE);

    rows.set({"a", "b", ""});
    for (void **missing : {reinterpret_cast<void **>(&held.thread_of()->idxl_kudcthd),
                           reinterpret_cast<void **>(&held.thread_of()->delp_kudcthd),
                           &rows[1].def.curval_kudxcol}) {
        void *kept = *missing;
        *missing = nullptr;
        refused(0, KUVAA_NOVALUE);
        *missing = kept;
    }
    kudxcoldef **columns = held.thread_of()->acol_kudcthd;
    held.thread_of()->acol_kudcthd = nullptr;
    refused(0, KUVAA_MISSING);
    held.thread_of()->acol_kudcthd = columns;

    // Fixed part 16 + 4 * 3 + 2 + 5 * 3, two bytes of values; two levels of 40 blocks each.
    const int32_t indexed = 40 * (512 + 256);
    const struct {
        int32_t data, index;
        uint32_t code;
    } rows_of[] = {
        {0x7FFFFFFF - 46, 0x7FFFFFFF, KUDCA_FULL},
        {0x7FFFFFFF, 0, KUDCA_FULL},
        {0x7FFFFFFF - 46, 0x7FFFFFFF - indexed, KUDCA_FULL},
        {0x7FFFFFFF - 47, 0x7FFFFFFF - indexed + 1, KUDCA_FULL},
        {0x7FFFFFFF - 47, 0x7FFFFFFF - indexed, 0},
    };
    const int32_t index_end = held.acmp->nxio_kudcacc;
    for (const auto &row : rows_of) {
        held.acmp->nxdo_kudcacc = row.data;
        held.acmp->nxio_kudcacc = row.index;
        if (row.code != 0) {
            refused(0, row.code);
        } else {
            EXPECT_EQ(stored(held), row.data) << "up to the last byte";
        }
    }
    EXPECT_EQ(held.acmp->nxdo_kudcacc, 0x7FFFFFFF);
    EXPECT_EQ(kudcdrd(held.acmp, held.thread_of(), held.thread_of()->last_kudcthd), 0u);
    held.acmp->nxio_kudcacc = index_end;
    kuxer0push(ctx, KUDCA_TYPE);
    EXPECT_EQ(kudcdstr(held.acmp, held.thread_of()), KUDCA_FULL);
    held.acmp->nxdo_kudcacc = 100;
    held.thread_of()->last_kudcthd = -1;
    EXPECT_EQ(kudcdstr(held.acmp, held.thread_of()), KUDCA_FULL) << "an error is on the stack";
    EXPECT_EQ(held.acmp->nxdo_kudcacc, 100);
    EXPECT_ERRORS(ctx, {"kudca 10", "kudca 100"});
    EXPECT_EQ(kudcdstr(nullptr, nullptr), KUVAA_MISSING);
    EXPECT_EQ(kudcdstr(held.acmp, nullptr), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21"});
}

TEST(Kudcd, NoPositionAndNoRecordIsBelievedBlindly)
{
    for (const bool buffered : {true, false}) {
        SCOPED_TRACE(buffered);
        context ctx;
        thread rows({{text, 10}, {KUDC_RAW, 10}});
        const cache held(ctx, {&rows});
        if (!buffered) held.thread_of()->useb_kudcthd = 0;
        rows.set({"abc", "defg"});
        ASSERT_EQ(stored(held), 0); // 33 bytes
        ASSERT_EQ(stored(held), 33);
        const std::string good = held.data(0, 66);
        unsigned char bytes[2][12];
        kudcbvadef binds[2] = {};
        kudcbvadef *values[] = {&binds[0], &binds[1]};
        for (int i = 0; i < 2; i++) binds[i].val_kudcbva = bytes[i];
        kudcrchdef header;
        const auto expect_refused = [&](int32_t position) {
            SCOPED_TRACE(position);
            EXPECT_EQ(kudcdrd(held.acmp, held.thread_of(), position), KUVAA_MISSING);
            ctx.clear();
            EXPECT_EQ(kudcdrbv(held.acmp, held.thread_of(), values, position, &header),
                      KUVAA_MISSING);
            EXPECT_ERRORS(ctx, {"kuvaa 21"});
        };
        for (const int32_t position : {-1, -2147483647, 1, 41, 66, 0x7FFFFFFF})
            expect_refused(position);
        const struct {
            int32_t offset; // of the word that is spoiled
            int64_t with;
        } spoils[] = {
            {0, 25},  {0, 34},  {0, 32}, {0, 67}, {0, -1}, // length of the record
            {16, 12}, {16, -1}, {16, 4}, {24, 5}, {24, 12}, {24, 0x7FFFFFFF}, // of a value
        };
        for (const auto &spoil : spoils) {
            held.put(held.acmp->datf_kudcacc, spoil.offset, word(spoil.with));
            SCOPED_TRACE(std::to_string(spoil.offset) + " " + std::to_string(spoil.with));
            expect_refused(0);
            held.put(held.acmp->datf_kudcacc, 0, good);
        }
        held.put(held.acmp->datf_kudcacc, 0, word(66)); // a value too long for its column
        held.put(held.acmp->datf_kudcacc, 16, word(36));
        expect_refused(0);
        for (const int32_t position : {-1, 34, 66})
            EXPECT_EQ(kudcdupd(held.acmp, held.thread_of(), position), KUVAA_MISSING);
        ctx.clear();

        rows[1].def.curval_kudxcol = nullptr;
        EXPECT_EQ(kudcdrd(held.acmp, held.thread_of(), 33),
                  buffered ? KUVAA_NOVALUE : KUVAA_MISSING);
        ctx.clear();
        binds[1].val_kudcbva = nullptr;
        EXPECT_EQ(kudcdrbv(held.acmp, held.thread_of(), values, 33, &header), KUVAA_MISSING);
        EXPECT_EQ(kudcdrbv(held.acmp, held.thread_of(), nullptr, 33, &header), KUVAA_MISSING);
        ctx.clear();
    }
}

TEST(Kudcd, LongValuesMoveInPieces)
{
    static const struct {
        uint32_t length;
        strings pieces;
    } rows_of[] = {
        {25000, {" 0 10240", " 10240 10240", " 20480 4520"}},
        {10240, {" 0 10240"}},
        {10241, {" 0 10240", " 10240 1"}},
        {1, {" 0 1"}},
        {0, {}},
    };
    context ctx;
    thread rows({{KUDC_LONG, 0}, {text, 5}});
    long_value value;
    value.of(rows[0]);
    const cache held(ctx, {&rows});
    EXPECT_EQ(held.thread_of()->useb_kudcthd, 0);
    ctx->kuxuiapp = application();
    for (const auto &row : rows_of) {
        SCOPED_TRACE(row.length);
        const auto pieces = [&](const std::string &what) {
            strings all;
            for (const std::string &piece : row.pieces) all.push_back(what + piece);
            return all;
        };
        const std::string bytes = value.bytes = pattern(row.length, row.length);
        value.of(rows[0]);
        value.pieces.clear();
        rows[1].set("end");
        const int32_t position = stored(held);
        ASSERT_GE(position, 0);
        EXPECT_EQ(value.pieces, pieces("read"));
        EXPECT_EQ(held.data(position + 21, row.length), bytes);
        EXPECT_EQ(held.data(position + 21 + static_cast<int32_t>(row.length), 8),
                  word(3) + '\0' + "end");
        if (row.length != 0) {
            EXPECT_EQ(rows[0].def.filpos_kudxcol, static_cast<uint32_t>(position) + 21);
        }

        // Rewriting passes over it; reading hands it back.
        value.pieces.clear();
        rows[1].set("END");
        EXPECT_EQ(kudcdupd(held.acmp, held.thread_of(), position), 0u);
        EXPECT_EQ(value.pieces, strings());
        value.bytes.clear();
        ASSERT_EQ(kudcdrd(held.acmp, held.thread_of(), position), 0u);
        EXPECT_EQ(value.pieces, pieces("write"));
        EXPECT_EQ(value.bytes, bytes);
        EXPECT_EQ(rows[1].value(), "END");
    }

    const int32_t end = held.acmp->nxdo_kudcacc;
    const int32_t last = held.thread_of()->last_kudcthd;
    value.bytes = pattern(300, 1);
    value.of(rows[0]);
    value.refused = true;
    EXPECT_EQ(stored(held), -1);
    EXPECT_ERRORS(ctx, {"kudca 102"});
    ctx->kuxuiapp = nullptr;
    EXPECT_EQ(stored(held), -1);
    EXPECT_ERRORS(ctx, {"kudca 14"});
    EXPECT_EQ(kudcdrd(held.acmp, held.thread_of(), 0), KUDCA_NOAPP);
    EXPECT_ERRORS(ctx, {"kudca 14"});
    kudccdsdef source = {held.acmp, &rows[0].def, 3, 21, 25000, 0};
    for (const uint32_t length : {25000u, 0u}) { // with an older error no value moves
        rows[0].def.filpos_kudxcol = 7;
        source.curlen_kudccds = length;
        kuxer0push(ctx, KUVAA_NOMEM);
        EXPECT_EQ(kudcdcload(&source), length != 0 ? KUVAA_NOMEM : 0);
        EXPECT_ERRORS(ctx, {"kuvaa 16"});
        EXPECT_EQ(rows[0].def.filpos_kudxcol, length != 0 ? 7u : 21u);
    }
    rows[0].def.filpos_kudxcol = 7;
    source.curlen_kudccds = 25000;
    EXPECT_EQ(kudcdcload(&source), KUDCA_NOAPP);
    EXPECT_ERRORS(ctx, {"kudca 14"});
    EXPECT_EQ(rows[0].def.filpos_kudxcol, 21u);
    EXPECT_EQ(rows[0].def.curlen_kudxcol, 0u);
    ctx->kuxuiapp = application();
    EXPECT_EQ(kudcdrd(held.acmp, held.thread_of(), 0), KUDCA_TRANSFER);
    ctx.clear();
    EXPECT_EQ(held.acmp->nxdo_kudcacc, end);
    EXPECT_EQ(held.thread_of()->last_kudcthd, last);
    EXPECT_EQ(held.data(last + 8, 4), word(-1));
}

TEST(Kudcd, ASourceBringsAValueBackLater)
{
    context ctx;
    thread rows({{text, 10}});
    const cache held(ctx, {&rows});
    rows.set({"first"});
    stored(held);
    rows[0].def.cngb_kudxcol = 5;
    kudccdsdef source;
    ASSERT_EQ(kudcdscds(held.acmp, &rows[0].def, &source), 0u);
    rows.set({"the second"});
    stored(held);
    ASSERT_EQ(kudcdcload(&source), 0u);
    EXPECT_EQ(rows[0].value(), "first");
    EXPECT_EQ(rows[0].def.cngb_kudxcol, 5);
    EXPECT_EQ(rows[0].def.filpos_kudxcol, 21u);

    rows[0].set("kept");
    const kudccdsdef good = source;
    for (int spoil = 0; spoil < 4; spoil++) {
        source = good;
        if (spoil == 0) source.colh_kudccds = nullptr;
        if (spoil == 1) source.filpos_kudccds = 0xFFFFFFFE;
        if (spoil == 2) source.curlen_kudccds = 12;
        if (spoil == 3) rows[0].def.curval_kudxcol = nullptr;
        EXPECT_EQ(kudcdcload(&source), KUVAA_MISSING);
        EXPECT_EQ(rows[0].value(), "kept");
    }
    EXPECT_EQ(kudcdscds(held.acmp, nullptr, &source), KUVAA_NOVALUE);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21", "kuvaa 21", "kuvaa 21", "kuvaa 22"});
    kudxcoldef null = {};
    source = {held.acmp, &null, 3, 9, 0, KUDC_NULL};
    EXPECT_EQ(kudcdcload(&source), 0u);
    EXPECT_EQ(null.curnul_kudxcol, KUDC_NULL);
    EXPECT_EQ(kudcdcload(nullptr), KUVAA_MISSING);
    for (unsigned type = 0; type < 256; type++) {
        null.xdbtyp_kudxcol = static_cast<uint8_t>(type);
        EXPECT_EQ(kudxctrmlen(&null), type == 1 || type == 8 ? 1u : 0u);
    }
}

// Random rows of threads of every kind beside a map of what was stored.
TEST(Kudcd, RandomRowsReadBackAsTheyWereStored)
{
    dice dice;
    SCOPED_TRACE("KU_SEED=" + std::to_string(ku::test::seed()));
    context ctx;
    ctx->kuxuiapp = application();
    thread shorts({{text, 30}, {KUDC_NUMBER, 21}});
    thread wide({{text, 6000}, {KUDC_LONG, 5000}}); // through the buffer, over several blocks
    thread longs({{KUDC_RAW, 70000}, {KUDC_LONG, 0}, {text, 10}});
    thread none({});
    shorts.with(KUDC_DYNBRK, {{0, 0}, {1, 1}});
    long_value value;
    value.of(longs[1]);
    thread *threads[] = {&shorts, &wide, &longs, &none};
    const cache held(ctx, {threads[0], threads[1], threads[2], threads[3]});
    struct row {
        std::size_t thread;
        strings values;
        uint16_t status;
    };
    std::map<int32_t, row> model;
    const auto values_of = [&](std::size_t number) {
        strings all;
        for (const auto &column : threads[number]->columns)
            all.push_back(column->def.segm_kudxcol == 0
                              ? column->value()
                              : value.bytes.substr(0, column->def.curlen_kudxcol));
        return all;
    };
    for (int step = 0; step < 600; step++) {
        const std::size_t number = dice.below(4);
        kudcthddef *of = held.thread_of(number);
        if (model.empty() || dice.one_in(2)) {
            for (const auto &column : threads[number]->columns) {
                const bool segmented = column->def.segm_kudxcol != 0;
                const uint32_t longest = segmented ? 30000 : column->def.maxlen_kudxcol;
                const uint32_t length = dice.below(dice.one_in(3) ? longest + 1 : 1 + longest / 50);
                const std::string bytes = pattern(length, dice.bits());
                if (segmented) {
                    value.bytes = bytes;
                    value.of(*column);
                } else {
                    column->set(bytes);
                }
            }
            const int32_t before = of->last_kudcthd;
            const int32_t position = stored(held, number);
            ASSERT_GE(position, 0);
            EXPECT_EQ(of->trch_kudcthd.prev_kudcrch, before);
            model[position] = {number, values_of(number), of->trch_kudcthd.stat_kudcrch};
            continue;
        }
        auto chosen = std::next(model.begin(), dice.below(static_cast<uint32_t>(model.size())));
        row &expected = chosen->second;
        of = held.thread_of(expected.thread);
        ASSERT_EQ(kudcdrd(held.acmp, of, chosen->first), 0u);
        ASSERT_EQ(values_of(expected.thread), expected.values);
        ASSERT_EQ(of->trch_kudcthd.stat_kudcrch, expected.status);
        if (of->trch_kudcthd.next_kudcrch != -1) {
            ASSERT_EQ(model.at(of->trch_kudcthd.next_kudcrch).thread, expected.thread);
        }
        of->trch_kudcthd.stat_kudcrch = expected.status = static_cast<uint16_t>(dice.bits());
        ASSERT_EQ(kudcdupd(held.acmp, of, chosen->first), 0u);
    }
}

// A store that fails leaves thread and file as they were, and the next one succeeds.
TEST(Kudcd, FailuresOnTheWayLeaveTheRowsThatWereThere)
{
    const auto scenario = [](context &ctx) {
        ctx->kuxuiapp = application();
        thread rows({{text, 5000}, {KUDC_LONG, 0}});
        long_value value;
        value.bytes = pattern(20000, 3);
        value.of(rows[1]);
        bool all = true;
        const cache held(ctx, {&rows}, 2);
        if (held.acmp == nullptr) return false;
        rows[0].set(pattern(5000, 1));
        for (int i = 0; i < 3; i++) {
            const int32_t end = held.acmp->nxdo_kudcacc;
            const int32_t last = held.thread_of()->last_kudcthd;
            if (stored(held) == end) continue;
            all = false;
            EXPECT_NE(kuxercode(ctx), 0u);
            EXPECT_EQ(held.acmp->nxdo_kudcacc, end);
            EXPECT_EQ(held.thread_of()->last_kudcthd, last);
            ctx.clear();
            EXPECT_EQ(stored(held), end) << "what was written in part is written over";
        }
        int32_t position = held.thread_of()->frst_kudcthd;
        int count = 0;
        for (; position != -1; position = held.thread_of()->trch_kudcthd.next_kudcrch, count++) {
            uint32_t status = kudcdrd(held.acmp, held.thread_of(), position);
            if (status != 0) {
                all = false;
                ctx.clear();
                status = kudcdrd(held.acmp, held.thread_of(), position);
            }
            if (status != 0) break;
            EXPECT_EQ(rows[0].value(), pattern(5000, 1));
            EXPECT_EQ(value.bytes, pattern(20000, 3));
        }
        EXPECT_EQ(count, 3);
        return all;
    };
    ku::test::sweep_allocations(scenario);
    ku::test::sweep_calls(scenario);
}

// ---- parts of long values ----

// A heap whose operations write down what they are asked for.
struct recorded_heap {
    recorded_heap()
    {
        heap.skuhmprivate = this;
        heap.skuhmalloc_pfn = [](kux *ctx, void *self, uint32_t size) -> void * {
            recorded_heap &of = from(self);
            of.log += " take" + std::to_string(size);
            if (!of.empty) return new char[size];
            kuxer0push(ctx, SKUHM_NOMEM);
            return nullptr;
        };
        heap.skuhmfree_pfn = [](kux *, void *self, void *address) {
            from(self).log += " free";
            delete[] static_cast<char *>(address);
        };
        heap.skuhmmemcpy_pfn = [](kux *ctx, void *self, void *to, const void *bytes,
                                  uint32_t size) {
            recorded_heap &of = from(self);
            of.log += " copy" + std::to_string(size);
            if (--of.copies == 0) {
                kuxer0push(ctx, SKUHM_BADRANGE);
                return SKUHM_BADRANGE;
            }
            std::memcpy(to, bytes, size);
            return 0u;
        };
        heap.skuhmgetptr_pfn = [](kux *, void *self, void *old, uint32_t offset, void **address) {
            from(self).log += " on";
            *address = static_cast<char *>(old) + offset;
            return 0u;
        };
    }
    static recorded_heap &from(void *heap)
    {
        return *static_cast<recorded_heap *>(static_cast<tag_skuhm *>(heap)->skuhmprivate);
    }
    tag_skuhm heap = {};
    std::string target = std::string(70000, '\0');
    std::string log;
    bool empty = false;
    int copies = 0; // the copy that fails; 0: none
};

TEST(Skudcd, PartsOfLongValuesComeInChunksThroughTheHeap)
{
    context ctx;
    ctx->kuxuiapp = application();
    thread rows({{KUDC_LONG, 0}});
    long_value value;
    value.bytes = pattern(70000, 9);
    value.of(rows[0]);
    const cache held(ctx, {&rows});
    ASSERT_EQ(stored(held), 0);
    kudccdsdef source;
    ASSERT_EQ(kudcdscds(held.acmp, &rows[0].def, &source), 0u);
    const struct {
        uint32_t offset, length;
        bool empty;
        int fails;
        uint32_t code;
        const char *log;
    } rows_of[] = {
        {10, 40000, false, 0, 0, " take32768 copy32768 on copy7232 free"},
        {69500, 500, false, 0, 0, " copy500"},
        {1, 1024, false, 0, 0, " copy1024"},
        {1, 1025, false, 0, 0, " take1025 copy1025 free"},
        {1, 2100, true, 0, 0, " take2100 copy1024 on copy1024 on copy52"},
        {0, 65536, false, 0, 0, " take32768 copy32768 on copy32768 free"},
        {70000, 0, false, 0, 0, ""},
        {0, 40000, false, 2, SKUHM_BADRANGE, " take32768 copy32768 on copy7232 free"},
        {69500, 501, false, 0, SKUDC_RANGE, ""},
        {0xFFFFFFFF, 2, false, 0, SKUDC_RANGE, ""}, // would wrap round
    };
    for (const auto &row : rows_of) {
        SCOPED_TRACE(row.log);
        recorded_heap heap;
        heap.empty = row.empty;
        heap.copies = row.fails;
        EXPECT_EQ(skudcdoleload(&source, &heap.heap, heap.target.data(), row.offset, row.length),
                  row.code);
        EXPECT_EQ(heap.log, row.log);
        EXPECT_EQ(kuxercode(ctx), row.code);
        if (row.code == 0) {
            EXPECT_TRUE(
                heap.target.compare(0, row.length, value.bytes.substr(row.offset, row.length))
                == 0);
        }
        ctx.clear();
    }

    recorded_heap heap;
    for (int32_t i = 0; i < ctx->kuxersize; i++) kuxer0push(ctx, KUDCA_TYPE);
    for (const char *log : {" take2000 free", " take2000", ""}) {
        if (*log == 0) ku::test::fail_basic_from_now(1); // no level for what the heap pushes
        EXPECT_EQ(skudcdoleload(&source, &heap.heap, heap.target.data(), 0, 2000), KUDCA_TYPE);
        EXPECT_EQ(heap.log, log);
        heap.log.clear();
        heap.empty = true;
    }
    EXPECT_ERRORS(ctx, std::vector<std::string>(static_cast<size_t>(ctx->kuxersize), "kudca 10"));
    EXPECT_EQ(skudcdoleload(&source, nullptr, nullptr, 0, 1), SKUHM_INVALID);
    ctx.clear();
    const uint32_t at = source.filpos_kudccds;
    for (const uint32_t elsewhere : {at + 1, UINT32_MAX - 68000}) { // at the end of the file; round
        source.filpos_kudccds = elsewhere;
        EXPECT_EQ(skudcdoleload(&source, &heap.heap, heap.target.data(), 69999, 1), KUVAA_MISSING);
    }
    source.curnul_kudccds = KUDC_NULL;
    EXPECT_EQ(skudcdoleload(&source, &heap.heap, heap.target.data(), 70000, 1), SKUDC_NULL);
    source.colh_kudccds = nullptr;
    EXPECT_EQ(skudcdoleload(&source, &heap.heap, heap.target.data(), 0, 1), KUVAA_MISSING);
    EXPECT_ERRORS(ctx, {"kuvaa 21", "kuvaa 21", "skudc 1", "kuvaa 21"});
    EXPECT_EQ(skudcdoleload(nullptr, &heap.heap, heap.target.data(), 0, 1), KUVAA_MISSING);
}
