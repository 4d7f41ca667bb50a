// Command lines: texts, vectors and command files become values or one error.
#include <array>
#include <string>
#include <vector>

#include "kucl.h"
#include "kul.h"
#include "kuxdn.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using ku::test::context;

namespace
{

std::vector<char *> vector(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts) pointers.push_back(text.data());
    return pointers;
}

// Definitions as a tool makes them, in the order mode, level, names, file.
class tool
{
public:
    explicit tool(context &ctx) : ctx_(ctx)
    {
        const ku::test::spared setup(ctx);
        list_ = kulpcreate(ctx, 0, nullptr);
        choices_ = kulpcreate(ctx, 2, choices);
        arguments_[0].kuclalst = choices_;
        for (kucla &argument : arguments_) kulpinsert(ctx, list_, KUL_APPEND, &argument);
    }
    tool(const tool &) = delete;
    tool &operator=(const tool &) = delete;
    ~tool()
    {
        for (int i = kulpnitems(ctx_, list_); i-- > 0;) {
            auto *argument = static_cast<kucla *>(kulpitem(ctx_, list_, i));
            void *values = argument->kuclaval;
            for (int j = values != nullptr ? kulpnitems(ctx_, values) : 0; j-- > 0;)
                ctx_->kuxnmfree(ctx_, kulpitem(ctx_, values, j));
            kulpdestroy(ctx_, values);
            if ((argument->kuclaflg & KUCL_ADDED) == 0) continue;
            ctx_->kuxnmfree(ctx_, const_cast<char *>(argument->kuclakwd));
            ctx_->kuxnmfree(ctx_, argument);
        }
        kulpdestroy(ctx_, list_);
        kulpdestroy(ctx_, choices_);
    }

    void *list() const { return list_; }
    kucla &operator[](std::size_t index) { return arguments_[index]; }

    // What a parse did: "mode=fast names=x,y !4" and, of the error, "(mode)" its
    // definition and "@" when it was found in the file.
    std::string said(kucle *error)
    {
        std::string text;
        for (int i = 0; i < kulpnitems(ctx_, list_); i++) {
            const auto *argument = static_cast<kucla *>(kulpitem(ctx_, list_, i));
            if (argument->kuclaval == nullptr) continue;
            text += std::string(text.empty() ? "" : " ") + argument->kuclakwd;
            for (int j = 0; j < kulpnitems(ctx_, argument->kuclaval); j++)
                text += (j > 0 ? "," : "=")
                        + std::string(static_cast<char *>(kulpitem(ctx_, argument->kuclaval, j)));
        }
        if (error == nullptr) return text;
        text += " !" + std::to_string(error->kuclecod);
        if (error->kuclearg != nullptr) text += std::string("(") + error->kuclearg->kuclakwd + ")";
        if (error->kucleflg == KUCLE_INFILE) text += "@";
        EXPECT_EQ(kucledestroy(ctx_, error), nullptr);
        return text;
    }
    std::string parse(const std::string &text, uint32_t userp = 0, int quote = 0)
    {
        return said(kuclpsq(ctx_, text.c_str(), list_, userp, quote));
    }

private:
    static inline char fast[] = "Fast";
    static inline char slow[] = "slow";
    static inline void *const choices[] = {fast, slow};
    context &ctx_;
    std::array<kucla, 4> arguments_ = {{
        {0, 0, "mode", "slow", nullptr, nullptr, KUCL_CHOICE | KUCL_NOCASE},
        {1, 10, "level", nullptr, nullptr, nullptr, KUCL_NUMBER | KUCL_RANGE},
        {0, 0, "names", nullptr, nullptr, nullptr, KUCL_LIST},
        {0, 0, "file", nullptr, nullptr, nullptr, KUCL_CMDFILE},
    }};
    void *list_;
    void *choices_;
};

} // namespace

TEST(Kucl, TextBecomesValuesOrTheFirstError)
{
    static constexpr struct {
        const char *text, *said;
    } rows[] = {
        {"", "mode=slow"}, // the default, which is not checked and comes last
        {"level=1 names=(x,y) fast", "level=1 names=x,y !4"},
        {"fast 3 a b c", "mode=fast level=3 names=a file=b !1"},
        {"mode=quick", "mode=quick !5(mode)"}, // attached all the same
        {"level=(1,2)", " !7(level)"},
        {"level=11", "level=11 !5(level)"},
        {"level=1x", "level=1x !5(level)"},
        {"level=+010", "mode=slow level=+010"},
        {"level=99999999999999999999", "level=99999999999999999999 !5(level)"},
        {"level=", "mode=slow level="},
        {"level= 3", "level= !4"},
        {"level =3", "mode=slow level=3"},
        {"names=()", " !6"},
        {"names=(x,y", " !6"},
        {"names=(x y)", " !6"},
        {"names=('',x)", " !6"},
        {"names=(x , 'y z')", "mode=slow names=x,y z"},
        {"names=(a,?)", " !50"},
        {"?", " !50"},
        {"names=a=b", "mode=slow names=a=b"},
        {"names=c:\\dir\\x.txt", "mode=slow names=c:\\dir\\x.txt"},
        {"names=a!b", "mode=slow names=a!b"}, // no lexer token, still a value
        {"names='x''y'", "mode=slow names=x''y"},
        {"names=--x 'y' /*", "mode=slow names=--x 'y' /*"}, // a comment is a value
        {"other=1", " !3(other)"},
        {"=5", " !3()"},
    };
    for (const char *language : {"ascii", "utf8", "sjis", "iso-2022-kr"})
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(language) + ": " + row.text);
            context ctx(language);
            tool definitions(ctx);
            EXPECT_EQ(definitions.parse(row.text), row.said);
            EXPECT_ERRORS(ctx, {});
        }
}

TEST(Kucl, UndeclaredKeywordsAreAddedAndTakeValuesOnlyWhenAccepted)
{
    context ctx;
    tool definitions(ctx);
    EXPECT_EQ(definitions.parse("other=(1,2) OTHER=3", 1), "other=1,2 !2(other)");
    EXPECT_EQ(kulpnitems(ctx, definitions.list()), 5);
    EXPECT_EQ(kuclgv(ctx, definitions.list(), "names"), nullptr);
    EXPECT_EQ(kulpnitems(ctx, kuclgv(ctx, definitions.list(), "Other")), 2);
    EXPECT_EQ(kuclgv(ctx, definitions.list(), "nobody"), nullptr);
}

TEST(Kucl, ManyKeywordsAreFoundAsFewAre)
{
    static constexpr const char *letters[] = {
        "a",      "K",      "k",      "\u212a", "\u00e9", "\u00c9", "s",      "\u017f", "\u03c2",
        "\u03a3", "\u00df", "\u1e9e", "I",      "i",      "\u0130", "\u0131", "\u01c5", "\u01c4"};
    ku::test::dice dice;
    context ctx("utf8");
    tool definitions(ctx);
    for (int step = 0; step < 1500; step++) {
        std::string keyword;
        for (uint32_t i = 0; i < 3; i++) keyword += letters[dice.below(std::size(letters))];
        const bool known =
            kuclgv(ctx, definitions.list(), keyword.c_str()) != nullptr; // one by one
        const int count = kulpnitems(ctx, definitions.list());
        kucle *error = kuclps(ctx, (keyword + "=1").c_str(), definitions.list(), 1);
        EXPECT_EQ(error != nullptr ? error->kuclecod : 0, known ? KUCLE_REPEATED : 0) << keyword;
        EXPECT_EQ(kulpnitems(ctx, definitions.list()), count + !known) << keyword;
        kucledestroy(ctx, error);
    }

    // Many minutes if each were compared with all before it.
    std::string line;
    for (int i = 0; i < 100000; i++) line += "keyword" + std::to_string(i) + "=1 ";
    context plain;
    tool many(plain);
    EXPECT_EQ(kuclps(plain, line.c_str(), many.list(), 1), nullptr);
    EXPECT_EQ(kulpnitems(plain, many.list()), 100004);
    EXPECT_EQ(many.parse("KEYWORD99999=2", 1), many.said(nullptr) + " !2(keyword99999)");
}

TEST(Kucl, KeywordsAreToldApartByTheir255BytesWithoutCase)
{
    const std::string a(254, 'a');
    const std::string capitals(300, 'A');
    const struct {
        const char *language;
        std::string declared, given;
        bool same;
    } rows[] = {
        {"utf8", a + "\u0178", a + "\u00ff", true},
        {"utf8", a + "\u00e9", a + "\u00c8", true}, // begin with the same byte
        {"utf8", a + "b", a + "c", false},
        {"utf8", "\u212a" + capitals, "k" + a + a, true}, // the first has three bytes
        {"utf8", a.substr(2) + "\u212a!", a.substr(2) + "k!?", false},
        {"iso-8859-1", a + "\xe9x", a + "\xc9y", true},
        {"iso-2022-kr", a.substr(2) + "\x0e#A#B\x0f", a.substr(2) + "\x0e#a#C\x0f", true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.given.substr(250));
        context ctx(row.language);
        tool definitions(ctx);
        definitions[0].kuclakwd = row.declared.c_str();
        definitions[0].kuclaval = definitions.list();
        EXPECT_EQ(kuclgv(ctx, definitions.list(), row.given.c_str()) != nullptr, row.same);
        definitions[0].kuclaval = nullptr;
    }
}

TEST(Kucl, VectorsBecomeTextWithQuotesWhereValuesHaveNone)
{
    static const struct {
        std::vector<std::string> vector;
        const char *text;
        const char *language = "ascii";
    } rows[] = {
        {{"tool", "mode=fast", "file=a b.txt", "x"}, " mode='fast'  file='a b.txt'  'x'"},
        {{"tool", "", "x"}, "   'x'"},
        {{"tool", "k='a b'", "k=\"a", "k=(a,b)", "(a,b)", "'x'"},
         " k='a b'  k=\"a  k=(a,b)  (a,b)  'x'"},
        {{"tool", "k=", "=", "a=b=c", "it's", "'a=b"}, " k=''  =''  a='b=c'  'it's'  'a=b"},
        {{"tool", "  x", "  k=v", "a\tb"}, "   'x'    k='v'  'a\tb'"},
        {{"tool", "(a=b", "a'=b'=c"}, " (a=b  a'=b'='c'"},
        {{"tool", "\x83\x5c=\x83\x5c"}, " \x83\x5c='\x83\x5c'", "sjis"},
        {{"tool", "\x0e\x3d\x27\x0f=\x0e\x30\x21\x0f"}, // `=` and `'` inside characters
         " \x0e\x3d\x27\x0f='\x0e\x30\x21\x0f'",
         "iso-2022-kr"},
        {{"tool", "k=\x0e\x30\x21"}, " k='\x0e\x30\x21\x0f'", "iso-2022-kr"},
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        std::vector<std::string> texts = row.vector;
        const std::vector<char *> argv = vector(texts);
        char *text = kuclmo(ctx, static_cast<int32_t>(argv.size()), argv.data());
        EXPECT_STREQ(text, row.text);
        ctx->kuxnmfree(ctx, text);
    }
    kux *plain = kuxcreate(nullptr); // its allocator pushes what failed
    for (const int failing : {1, 2}) {
        ku::test::fail_basic_from_now(failing);
        EXPECT_TRUE(kuclmo(plain, 1, nullptr) == nullptr && kuxercode(plain) == 0) << failing;
    }
    ku::test::fail_basic_from_now(0);
    kuxdestroy(plain);
}

TEST(Kucl, CommandFilesAreReadAfterTheLine)
{
    const std::string feeds(41, '\n');
    std::string blanks; // between letters, all in one run
    while (blanks.size() < 600) blanks += "!!0!";
    const struct {
        std::string file, said;
        int quote = 0;
        const char *language = "ascii";
    } rows[] = {
        {"", "mode=slow"},
        {"level=3 fast\n", "level=3 !4@"},
        {"names=x\nlevel=12", "level=12 names=x !5(level)@"},
        {"names='a\nb\nc'\nlevel=2", "mode=slow level=2 names=a\nb\nc"}, // over three lines
        {"names=(a,\n b,\n c)\n", "mode=slow names=a,b,c"},
        {"level=3 /* mode=x\n mode=y */", "level=3 !4@"}, // a comment is a value here, too
        {"names=" + std::string(3000, 'x'), "mode=slow names=" + std::string(3000, 'x')},
        {"names='" + feeds + "x'", "mode=slow names=" + feeds + "x"},
        {"names=it is\nlevel=3 \n", "names=it !4@", 1},
        {"names=a!b  level=3\n\nmode=(fast)", "mode=fast level=3 names=a!b", 1},
        {"names=a/*b level=3\tmode=fast", "mode=fast level=3 names=a/*b", 1},
        {"file=other", "!2(file)@"},
        {"names='ab\n\x0e\x30!\x0f' level=1", "mode=slow level=1 names=ab\n\x0e\x30!\x0f", 0,
         "iso-2022-kr"},
        // A blank of two bytes ends a value, too; shifted runs are closed around it.
        {"names=x\x0e!!\x0flevel=3", "mode=slow level=3 names=x", 1, "iso-2022-kr"},
        {"names=\x0e#A!!#B\x0f", "names=\x0e#A\x0f !4@", 1, "iso-2022-kr"},
        {"level=3\x0e!!!!\x0f names='a\x0e!!\x0f'\x0e!!", "mode=slow level=3 names=a\x0e!!\x0f", 1,
         "iso-2022-kr"},
        {"names=\x0e" + blanks, "names= !4@", 1, "iso-2022-kr"},
    };
    ku::test::directory dir;
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file.substr(0, 60));
        context ctx(row.language);
        tool definitions(ctx);
        const std::string path = dir.write("commands", row.file);
        std::string said = definitions.parse("file='" + path + "'", 0, row.quote);
        const std::string own = "file=" + path;
        said.erase(said.find(own), own.size() + 1);
        while (!said.empty() && said.back() == ' ') said.pop_back();
        EXPECT_EQ(said, row.said);
    }
    context ctx;
    tool definitions(ctx);
    EXPECT_EQ(definitions.parse("file=no_such"), "file=no_such !8(file)");
    tool defaulted(ctx);
    defaulted[3].kucladef = "no_such"; // a default names no file
    EXPECT_EQ(defaulted.parse("level=3"), "mode=slow level=3 file=no_such");
}

TEST(Kucl, ShortOfMemoryAParseSaysSoAndLeaksNothing)
{
    ku::test::directory dir;
    const std::string path = dir.write("commands", "names=('a\nb',c)\nnew=1\nlevel=2");
    bool once = true; // one allocation fails: the record of its error finds memory
    const auto parse = [&](context &ctx) {
        tool definitions(ctx);
        std::vector<std::string> texts = {"tool", "mode=fast", "file=" + path};
        const std::vector<char *> argv = vector(texts);
        kucle *error = kuclpa(ctx, 3, argv.data(), definitions.list(), 1);
        EXPECT_EQ(ctx.errors(), std::vector<std::string>{});
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(definitions[static_cast<std::size_t>(i)].kuclakwd[0], "mlnf"[i]);
        if (error == nullptr) {
            EXPECT_EQ(definitions.said(nullptr),
                      "mode=fast level=2 names=a\nb,c file=" + path + " new=1");
            return true;
        }
        // No memory to open the file with is a file that cannot be opened; behind
        // that everything is found in the file.
        const bool named = definitions[3].kuclaval != nullptr;
        EXPECT_TRUE(error->kuclecod == KUCLE_NOMEM || (named && error->kuclecod == KUCLE_CMDFILE));
        const bool inside = error->kucleflg == KUCLE_INFILE;
        if (once || inside) {
            EXPECT_EQ(inside, named && error->kuclecod == KUCLE_NOMEM);
        }
        kucledestroy(ctx, error);
        return false;
    };
    ku::test::sweep_allocations(parse);
    ku::test::sweep_allocations(parse, "iso-2022-kr");
    ku::test::sweep_basic_allocations(parse);
    once = false; // a file that cannot be opened may be no memory for its record, too
    for (unsigned run = 0; run < 200; run++) {
        context ctx;
        ctx.fail_one_in(2 + run);
        parse(ctx);
        ctx.clear();
    }
}

TEST(Kucl, WithoutAnyMemoryTheCallersErrorsStayAsTheyWere)
{
    context ctx;
    tool definitions(ctx);
    kux *whole = ctx;
    for (int32_t code = 1; code <= whole->kuxersize; code++) // a full level
        kuxer0push(ctx, static_cast<uint32_t>(code));
    const auto before = ctx.errors();
    const kuxnmallocfn allocate = whole->kuxnmalloc;
    whole->kuxnmalloc = [](kux *of, uint32_t) -> void * {
        kuxer0push(of, KUXNM_NOMEM);
        return nullptr;
    };
    std::string name = "tool", mode = "mode=fast";
    char *argv[] = {name.data(), mode.data()};
    for (const bool level : {false, true}) { // whether there is memory for one of the error stack
        const auto short_of_memory = [level] { ku::test::fail_basic_from_now(level ? 0 : 1); };
        short_of_memory();
        EXPECT_EQ(definitions.parse("mode=fast"), " !9");
        short_of_memory();
        EXPECT_EQ(definitions.said(kuclpa(ctx, 2, argv, definitions.list(), 0)), " !9");
        short_of_memory();
        EXPECT_EQ(kuclmo(ctx, 2, argv), nullptr);
        ku::test::fail_basic_from_now(0);
        EXPECT_EQ(ctx.errors(), before);
    }
    whole->kuxnmalloc = allocate;
    ctx.clear();
}
