// kudcp.cpp - dumps of the data cache
//
//     <Lvl: 0,Dpth: 0,ID: 0,PPID: -1,PPOS: -1,Fp: 0,Rsib: -1, Lsib: -1>
//       s- Smith           the key columns of an entry, one a line
//       e- London
//         <Lvl: ...        a subtree, deeper by four blanks
//
// A line is built whole and put at once. Names and values are cut, so that all of
// a line but its indentation has a bound. The tree is read node by node into
// blocks of the dump's own: the cache's working buffers stay as they are. A node
// is looked over before it is printed, since a client names the offset.
#include "kudcp.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "kudc_internal.h"
#include "kudck.h"
#include "port/core/datevalue.h"
#include "port/core/number.h"
#include "skub.h"

using namespace ku::cache;

namespace
{

constexpr std::size_t kudcp_value = 256; // bytes of a value's text with its NUL
constexpr int kudcp_cut = 200;           // bytes of a name or a value that are printed
constexpr std::size_t kudcp_line = 512;  // bytes of a line without its indentation
constexpr int kudcp_step = 4;            // blanks of indentation a depth
constexpr int kudcp_inset = 2;           // further blanks of what stands in a node

static_assert(kudcp_cut < kudcp_value && kudcp_value < kudcp_line);

#define KUDCP_INDENT "   " // of the fields of a record

template <typename... Values>
std::uint32_t kudcpput(const kudcaccdef *acmp, void *stream, const char *format, Values... values)
{
    char line[kudcp_line];
    std::snprintf(line, sizeof line, format, values...);
    return skubsput(acmp->kuxp_kudcacc, stream, line);
}

std::uint32_t kudcpplain(const kudcaccdef *acmp, void *stream, const char *line)
{
    return skubsput(acmp->kuxp_kudcacc, stream, line);
}

// ---- the tree ----

struct kudcpdump {
    kudcaccdef *acmp;
    void *stream;
    std::uint16_t type;
    std::int32_t *counter;
};

struct kudcpnode {
    std::int32_t limit;
    std::int32_t position;
    std::int32_t depth;
    std::int32_t parent;
    std::int32_t entry;
};

// A line behind its indentation, of which there may be any amount. A tail stands behind the
// same indentation again.
std::uint32_t kudcpindented(const kudcpdump &dump, std::uint64_t blanks, const char *text,
                            const char *tail = nullptr)
{
    kux *ctx = dump.acmp->kuxp_kudcacc;
    ku::owned<char> line(ctx, static_cast<char *>(obtain(ctx, 2 * (blanks + kudcp_line), 1)));
    if (!line) return KUVAA_NOMEM;
    const int width = static_cast<int>(blanks); // it was small enough for the block
    const int again = tail != nullptr ? width : 0;
    std::snprintf(line.get(), 2 * (blanks + kudcp_line), "%*s%s%*s%s\n", width, "", text, again, "",
                  tail != nullptr ? tail : "");
    return skubsput(ctx, dump.stream, line.get());
}

std::uint64_t kudcpblanks(std::int32_t depth)
{
    return static_cast<std::uint64_t>(std::max(depth, 0)) * kudcp_step;
}

// Numbers a node; a client may begin anywhere.
std::int32_t kudcpcount(const kudcpdump &dump)
{
    const std::int32_t number = *dump.counter;
    *dump.counter = static_cast<std::int32_t>(static_cast<std::uint32_t>(number) + 1);
    return number;
}

std::uint32_t kudcpempty(const kudcpdump &dump, const kudcpnode &node)
{
    const std::uint64_t blanks = kudcpblanks(node.depth);
    char text[kudcp_line];
    std::snprintf(text, sizeof text,
                  "<Lvl: %" PRId32 ",Dpth: %" PRId32 ",ID: %" PRId32 ",PPID: %" PRId32
                  ",PPOS: %" PRId32 ", Fp: %d>",
                  node.limit, node.depth, *dump.counter, node.parent, node.entry, KUDC_NONE);
    std::uint32_t status = kudcpindented(dump, blanks, text);
    if (status == 0) status = kudcpindented(dump, blanks + kudcp_inset, "# Subtree empty #");
    if (status != 0) return status;
    kudcpcount(dump);
    return KUDCA_NOTREE;
}

// What was read at a position is a block: it names that position, and all of it is there.
bool kudcpsound(const unsigned char *block, std::uint32_t bytes, std::int32_t position)
{
    if (bytes < block_head) return false;
    const kudcidhdef header = header_of(block);
    if (header.size_kudcidh > bytes
        || !is_block(block, position, header.size_kudcidh, header.levl_kudcidh))
        return false;
    for (std::uint32_t i = 0; i < header.kyct_kudcidh; i++)
        if (entry_size(block, i) == 0) return false;
    return true;
}

// The key columns of an entry, a line each.
std::uint32_t kudcpentry(const kudcpdump &dump, std::int32_t depth, const unsigned char *block,
                         std::uint16_t entry)
{
    const kudcidhdef header = header_of(block);
    const unsigned char *flatkey = key_at(block, entry);
    char child[kudcp_line];
    std::snprintf(child, sizeof child, "         <Child BTree fileposn: %" PRId32 ">",
                  entry_of(block, entry).root_kudcind);
    for (std::uint16_t i = 0; i < header.clct_kudcidh; i++) {
        const auto head = load<kudcflkchdef>(flatkey + key_head * i);
        const unsigned char *bytes = nullptr;
        kudckcvp(flatkey, i, header.clct_kudcidh, &bytes);
        char value[kudcp_value];
        kudcpval(dump.acmp, value, bytes, head.len_kudcflkch, head.type_kudcflkch,
                 head.isnull_kudcflkch);
        const char *mark = i == 0 ? "s- " : i + 1 == header.clct_kudcidh ? "e- " : "|  ";
        char text[kudcp_line];
        std::snprintf(text, sizeof text, "%s%s", mark, value);
        const std::uint32_t status =
            kudcpindented(dump, kudcpblanks(depth) + kudcp_inset, text,
                          i == 0 && header.leaf_kudcidh != 0 ? child : nullptr);
        if (status != 0) return status;
    }
    return 0;
}

std::uint32_t kudcpprint(const kudcpdump &dump, const kudcpnode &node, const unsigned char *block)
{
    const kudcidhdef header = header_of(block);
    const std::uint64_t blanks = kudcpblanks(node.depth);
    char text[kudcp_line];
    std::snprintf(text, sizeof text,
                  "<Lvl: %d,Dpth: %" PRId32 ",ID: %" PRId32 ",PPID: %" PRId32 ",PPOS: %" PRId32
                  ",Fp: %" PRId32 ",Rsib: %" PRId32 ", Lsib: %" PRId32 ">",
                  header.levl_kudcidh, node.depth, *dump.counter, node.parent, node.entry,
                  node.position, header.rsib_kudcidh, header.lsib_kudcidh);
    std::uint32_t status = kudcpindented(dump, blanks, text);
    if (status == 0 && header.kyct_kudcidh == 0)
        status = kudcpindented(dump, blanks + kudcp_inset, "# No Keys In Node #");
    for (std::uint16_t i = 0; status == 0 && i < header.kyct_kudcidh; i++)
        status = kudcpentry(dump, node.depth, block, i);
    return status;
}

// A node whose block is being dumped; the block's bytes lie behind this.
struct kudcpopen {
    kudcpopen *above;
    kudcpnode node;
    std::int32_t number;
    std::int32_t next;   // entry to go on with; KUDC_NONE: `less`
    std::int32_t height; // blocks from the root of its tree to here

    unsigned char *block() { return reinterpret_cast<unsigned char *>(this + 1); }
};

// The nodes on the way from where the dump began to where it is. A sound tree has none twice, and
// comes to an end.
class kudcpway : ku::unique
{
public:
    explicit kudcpway(const kudcpdump &dump)
        : dump_(dump), left_(dump.acmp->nxio_kudcacc / static_cast<std::int32_t>(block_head))
    {
    }
    ~kudcpway()
    {
        while (last_ != nullptr) leave();
    }

    // Prints a node and stays there. A subtree that is empty is told and left at once.
    std::uint32_t enter(const kudcpnode &node)
    {
        if (node.position == KUDC_NONE) return kudcpempty(dump_, node);
        kudcaccdef *acmp = dump_.acmp;
        auto *open = static_cast<kudcpopen *>(
            obtain(acmp->kuxp_kudcacc, sizeof(kudcpopen) + acmp->isiz_kudcacc, 1));
        if (open == nullptr) return KUVAA_NOMEM;
        *open = {last_, node, 0, 0, 1};
        last_ = open;
        return show();
    }
    // Goes on until all below the first node is printed.
    std::uint32_t finish()
    {
        while (last_ != nullptr) {
            const std::uint32_t status = step();
            if (status != 0 && status != KUDCA_NOTREE) return status;
        }
        return 0;
    }

private:
    void leave()
    {
        kudcpopen *open = last_;
        last_ = open->above;
        dump_.acmp->kuxp_kudcacc->kuxnmfree(dump_.acmp->kuxp_kudcacc, open);
    }
    bool inner(const kudcidhdef &header) const
    {
        return header.leaf_kudcidh == 0 && dump_.type == KUDC_RANDOM;
    }
    // A block hangs at the level where it may, and in no tree that is higher than the file has
    // blocks.
    bool belongs(const kudcidhdef &header)
    {
        kudcpopen *above = last_->above;
        if (above == nullptr) return true;
        const kudcidhdef parent = header_of(above->block());
        if (inner(parent)) last_->height = above->height + 1;
        return last_->height <= dump_.acmp->nxio_kudcacc / parent.size_kudcidh
               && header.levl_kudcidh == parent.levl_kudcidh + (inner(parent) ? 0 : 1);
    }
    // Reads and prints the last node's block.
    std::uint32_t show();
    // Goes to the next node below or, in a chain, behind the last one, or back.
    std::uint32_t step();

    const kudcpdump &dump_;
    std::int32_t left_; // nodes that there can be yet
    kudcpopen *last_ = nullptr;
};

std::uint32_t kudcpway::show()
{
    kudcaccdef *acmp = dump_.acmp;
    const kudcpnode &node = last_->node;
    unsigned char *block = last_->block();
    if (node.position < 0 || node.position >= acmp->nxio_kudcacc || left_-- <= 0)
        return refuse(acmp, KUVAA_MISSING);
    const auto bytes = static_cast<std::uint32_t>(
        std::min<std::int32_t>(acmp->isiz_kudcacc, acmp->nxio_kudcacc - node.position));
    std::uint32_t status = read_block(acmp, node.position, bytes, block);
    if (status != 0) return status;
    if (!kudcpsound(block, bytes, node.position) || !belongs(header_of(block)))
        return refuse(acmp, KUVAA_MISSING);
    status = kudcpprint(dump_, node, block);
    if (status != 0) return status;
    last_->number = kudcpcount(dump_);
    last_->next = inner(header_of(block)) ? KUDC_NONE : 0;
    return 0;
}

std::uint32_t kudcpway::step()
{
    const kudcidhdef header = header_of(last_->block());
    const kudcpnode &node = last_->node;
    const bool sequential = dump_.type == KUDC_SEQNTL, down = inner(header);
    const bool below = (sequential || dump_.type == KUDC_RANDOM)
                       && (down || (header.levl_kudcidh < node.limit && header.last_kudcidh == 0));
    if (below && last_->next < header.kyct_kudcidh) {
        const std::int32_t at = last_->next++;
        kudcpnode child = {node.limit, header.less_kudcidh, node.depth + 1, last_->number, at};
        if (at != KUDC_NONE) {
            const kudcinddef entry = entry_of(last_->block(), static_cast<std::uint32_t>(at));
            child.position = down ? entry.frst_kudcind : entry.root_kudcind;
        }
        if (sequential && child.limit != INT32_MAX) child.limit++;
        if (sequential) child.depth = node.depth;
        return enter(child);
    }
    if (!sequential || header.rsib_kudcidh == KUDC_NONE) {
        leave();
        return 0;
    }
    last_->node.position = header.rsib_kudcidh;
    return show();
}

// A node and what hangs below it; then, in a chain, the nodes behind it.
std::uint32_t kudcptree(const kudcpdump &dump, const kudcpnode &first)
{
    kudcpway way(dump);
    const std::uint32_t status = way.enter(first);
    return status != 0 ? status : way.finish();
}

const char *kudcptype(std::uint16_t type)
{
    if (type == KUDC_RANDOM) return "Idxtype: RANDOM\n";
    return type == KUDC_SEQNTL ? "Idxtype: SEQNTL\n" : "Idxtype: DYNBRK\n";
}

} // namespace

extern "C" {

void kudcpacmp(kudcaccdef *acmp, void *stream)
{
    if (acmp == nullptr) return;
    if (acmp->thrd_kudcacc == nullptr) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    for (std::int32_t i = 0; i < acmp->thct_kudcacc; i++)
        kudcpthdd(acmp, acmp->thrd_kudcacc + i, i, stream);
}

void kudcpthdd(kudcaccdef *acmp, const kudcthddef *thread, std::int32_t number, void *stream)
{
    if (acmp == nullptr) return;
    if (thread == nullptr || thread->acol_kudcthd == nullptr
        || (thread->idxc_kudcthd != 0 && thread->idxs_kudcthd == nullptr)) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    kudcpplain(acmp, stream, "\t###################################################\n");
    kudcpput(acmp, stream, "\t# Thread: %" PRId32 "\n", number);
    kudcpplain(acmp, stream, "\t###################################################\n\n");
    for (std::uint32_t i = 0; i < thread->clct_kudcthd; i++)
        kudcpcolh(acmp, thread->acol_kudcthd[i], stream);
    kudcpplain(acmp, stream, "\n");
    for (std::int32_t i = 0; i < thread->idxc_kudcthd; i++)
        kudcpdidx(acmp, thread->idxs_kudcthd + i, i, number, stream);
}

void kudcpdidx(kudcaccdef *acmp, const kudcidxdef *index, std::int32_t number, std::int32_t thread,
               void *stream)
{
    if (acmp == nullptr) return;
    if (index == nullptr) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    kudcpplain(acmp, stream, "\t---------------------------------------------------\n");
    kudcpput(acmp, stream, "\t+ Thread: %" PRId32 " Index: %" PRId32 " %s", thread, number,
             kudcptype(index->idxt_kudcidx));
    kudcpplain(acmp, stream, "\t----------------------------------------------------\n\n");
    std::int32_t level = -1;
    for (std::uint32_t i = 0; i < index->goal_kudcidx.numbva_kudckey; i++) {
        const kudcbvadef &column = index->goal_kudcidx.arybva_kudckey[i];
        if (column.level_kudcbva != level)
            kudcpput(acmp, stream, "\n\t\t\t<< level: %d  >>\n\n", column.level_kudcbva);
        level = column.level_kudcbva;
        kudcpcolh(acmp, column.col_kudcbva, stream);
    }
}

void kudcpcolh(kudcaccdef *acmp, const kudxcoldef *column, void *stream)
{
    if (acmp == nullptr) return;
    if (column == nullptr || column->name_kudxcol == nullptr) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    kudcpput(acmp, stream, "\tColName: %20.*s ColType: %d\n", kudcp_cut, column->name_kudxcol,
             column->xdbtyp_kudxcol);
}

void kudcpgoal(kudcaccdef *acmp, const kudckeydef *key, void *stream)
{
    if (acmp == nullptr) return;
    if (key == nullptr || (key->numbva_kudckey != 0 && key->arybva_kudckey == nullptr)) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    kudcpput(acmp, stream, "\nkudckey struct at addr: 0x%" PRIxPTR " ....\n",
             reinterpret_cast<std::uintptr_t>(key));
    kudcpput(acmp, stream, KUDCP_INDENT "numbva_kudckey: %d\n", key->numbva_kudckey);
    kudcpput(acmp, stream, KUDCP_INDENT "numlevsize_kudckey: %d\n", key->numlevsize_kudckey);
    for (std::uint32_t i = 0; i < key->numbva_kudckey; i++)
        kudcpbva(acmp, key->arybva_kudckey + i, stream);
}

void kudcpbva(kudcaccdef *acmp, const kudcbvadef *value, void *stream)
{
    if (acmp == nullptr) return;
    if (value == nullptr) {
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    kudcpput(acmp, stream, "\nkudcbva struct at addr: 0x%" PRIxPTR " ....\n",
             reinterpret_cast<std::uintptr_t>(value));
    kudcpput(acmp, stream, KUDCP_INDENT "val_kudcbva: 0x%" PRIxPTR "\n",
             reinterpret_cast<std::uintptr_t>(value->val_kudcbva));
    const struct {
        const char *format;
        std::int32_t number;
    } fields[] = {
        {KUDCP_INDENT "len_kudcbva: %d\n", static_cast<std::int32_t>(value->len_kudcbva)},
        {KUDCP_INDENT "xdbtyp_kudcbva: %d\n", value->xdbtyp_kudcbva},
        {KUDCP_INDENT "valnul_kudcbva: %d\n", value->valnul_kudcbva},
        {KUDCP_INDENT "set_kudcbva: %d\n", value->set_kudcbva},
        {KUDCP_INDENT "wildcard_kudcbva: %d\n", value->wildcard_kudcbva},
    };
    for (const auto &field : fields) kudcpput(acmp, stream, field.format, field.number);
    if (value->val_kudcbva == nullptr) {
        kudcpplain(acmp, stream, "\n" KUDCP_INDENT "Val: #Couldn't lock KUDCBVA_VAL(bvap)\n");
        refuse(acmp, KUVAA_MISSING);
        return;
    }
    char text[kudcp_value];
    kudcpval(acmp, text, value->val_kudcbva, value->len_kudcbva, value->xdbtyp_kudcbva,
             value->valnul_kudcbva);
    kudcpput(acmp, stream, "\n" KUDCP_INDENT "Val: #%s#\n", text);
}

std::uint32_t kudcpidx(kudcaccdef *acmp, std::int32_t limit, std::uint16_t thread,
                       std::int16_t number, void *stream)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    if (acmp->thrd_kudcacc == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (thread >= acmp->thct_kudcacc) {
        kudcpput(acmp, stream, "Illegal thread number: %d. Max thread #: %d\n", thread,
                 acmp->thct_kudcacc);
        return KUDCA_THREAD;
    }
    const kudcthddef &rows = acmp->thrd_kudcacc[thread];
    if (rows.idxc_kudcthd != 0 && rows.idxs_kudcthd == nullptr) return refuse(acmp, KUVAA_MISSING);
    if (number < 0 || number >= rows.idxc_kudcthd) {
        kudcpput(acmp, stream, "Illegal index (%d) for thread (%d). Max indexthread #: %d\n",
                 number, thread, rows.idxc_kudcthd);
        return KUDCA_INDEX;
    }
    const kudcidxdef &index = rows.idxs_kudcthd[number];
    if (index.idxt_kudcidx == KUDC_DYNBRK) return 0;
    const bool sequential = index.idxt_kudcidx == KUDC_SEQNTL;
    const std::int32_t start =
        sequential ? index.tinf_kudcidx.sinf_kudcidx.head_kudcsidx.cloc_kudcspos.apos_kudcscl[0]
                   : index.tinf_kudcidx.rinf_kudcidx.root_kudcridx;
    if (const std::uint32_t status =
            kudcpput(acmp, stream, " \t<<< Printing %s Index: %d.  thread: %d >>>\n\n",
                     sequential ? "SEQNTL" : "BTREE", number, thread))
        return status;
    std::int32_t counter = 0;
    const std::uint32_t status = kudcptree({acmp, stream, index.idxt_kudcidx, &counter},
                                           {limit, start, 0, KUDC_NONE, KUDC_NONE});
    return status == KUDCA_NOTREE ? 0 : status; // nothing was entered
}

void kudcpbrt(kudcaccdef *acmp, std::int32_t limit, std::int32_t root, void *stream)
{
    if (acmp == nullptr) return;
    std::int32_t counter = 0;
    kudcptree({acmp, stream, KUDC_RANDOM, &counter}, {limit, root, 0, KUDC_NONE, KUDC_NONE});
}

std::uint32_t kudcplvl(kudcaccdef *acmp, std::int32_t limit, std::int32_t block, std::int32_t depth,
                       std::int32_t *counter, std::int32_t parent, std::int32_t parententry,
                       std::uint16_t type, void *stream)
{
    if (acmp == nullptr) return KUVAA_MISSING;
    return kudcptree({acmp, stream, type, counter}, {limit, block, depth, parent, parententry});
}

void kudcpval(kudcaccdef *, char *text, const unsigned char *value, std::uint32_t length,
              std::uint16_t datatype, std::int8_t isnull)
{
    const bool known = datatype == KUDC_CHARACTER || datatype == KUDC_NUMBER
                       || datatype == KUDC_INTEGER || datatype == KUDC_DATE;
    if (isnull == KUDC_NULL || (known && (value == nullptr || length == 0))) {
        std::strcpy(text, "NULL");
    } else if (datatype == KUDC_CHARACTER) {
        std::snprintf(text, kudcp_value, "%.*s",
                      static_cast<int>(std::min<std::uint32_t>(length, kudcp_cut)),
                      reinterpret_cast<const char *>(value));
    } else if (datatype == KUDC_NUMBER) {
        ku::core::number_to_picture(value, length, "9999999999999", text, kudcp_value);
    } else if (datatype == KUDC_INTEGER) {
        std::int32_t number = 0;
        std::memcpy(&number, value, std::min<std::size_t>(length, sizeof number));
        std::snprintf(text, kudcp_value, "%" PRId32, number);
    } else if (datatype == KUDC_DATE) {
        ku::core::value_to_text(value, length, text);
    } else {
        std::strcpy(text, "... bad type ...");
    }
}

} // extern "C"
