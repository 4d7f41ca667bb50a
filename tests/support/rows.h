// rows.h - columns, descriptions and caches for tests of the query data cache
#ifndef TESTS_SUPPORT_ROWS_H
#define TESTS_SUPPORT_ROWS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kudcf.h"
#include "skuf.h"
#include "skufv.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

namespace ku::test
{

// A client's column with a buffer of its own.
struct column {
    column(uint32_t type, uint32_t longest) : bytes(longest + 2)
    {
        def.xdbtyp_kudxcol = static_cast<uint8_t>(type);
        def.maxlen_kudxcol = longest;
        def.name_kudxcol = "column";
        def.curval_kudxcol = bytes.data();
    }
    void set(std::string_view value)
    {
        if (!value.empty()) std::memcpy(bytes.data(), value.data(), value.size());
        def.curlen_kudxcol = static_cast<uint32_t>(value.size());
        def.curnul_kudxcol = 0;
    }
    void set_null()
    {
        def.curlen_kudxcol = 0;
        def.curnul_kudxcol = KUDC_NULL;
    }
    std::string value() const
    {
        return {reinterpret_cast<const char *>(bytes.data()), def.curlen_kudxcol};
    }

    kudxcoldef def = {};
    std::vector<unsigned char> bytes;
};

// A key column over a thread's column: the level it belongs to, and its number.
struct part {
    uint16_t level;
    std::size_t column;
};

// What a thread is made of.
struct thread {
    struct index {
        uint32_t type;
        std::vector<part> parts;
    };
    explicit thread(std::vector<std::pair<uint32_t, uint32_t>> types)
    {
        for (const auto &[type, longest] : types)
            columns.push_back(std::make_unique<column>(type, longest));
    }
    thread &with(uint32_t type, std::vector<part> parts)
    {
        indexes.push_back({type, std::move(parts)});
        return *this;
    }
    column &operator[](std::size_t number) { return *columns[number]; }
    void set(const std::vector<std::string> &values)
    {
        for (std::size_t i = 0; i < values.size(); i++) columns[i]->set(values[i]);
    }
    std::vector<std::string> values() const
    {
        std::vector<std::string> all;
        for (const auto &each : columns) all.push_back(each->value());
        return all;
    }

    std::vector<std::unique_ptr<column>> columns;
    std::vector<index> indexes;
};

// A key over a thread's columns, as a client makes it, all values given.
struct goal {
    goal(thread &of, const std::vector<part> &parts, const std::vector<std::string> &values)
        : values_(values)
    {
        for (std::size_t i = 0; i < parts.size(); i++) {
            kudxcoldef &under = of[parts[i].column].def;
            kudcbvadef value = {};
            value.col_kudcbva = &under;
            value.sort_kudcbva = KUDC_ASCENDING;
            value.xdbtyp_kudcbva = under.xdbtyp_kudxcol;
            value.level_kudcbva = parts[i].level;
            value.set_kudcbva = 1;
            if (i < values_.size()) {
                value.val_kudcbva = reinterpret_cast<unsigned char *>(values_[i].data());
                value.len_kudcbva = static_cast<uint32_t>(values_[i].size());
            }
            parts_.push_back(value);
        }
        key.numbva_kudckey = static_cast<uint16_t>(parts_.size());
        key.arybva_kudckey = parts_.data();
    }
    goal(const goal &) = delete;
    goal &operator=(const goal &) = delete;

    kudckeydef key = {};
    std::vector<std::string> values_;
    std::vector<kudcbvadef> parts_;
};

// Descriptions as creation wants them; they can be changed before.
class descriptions
{
public:
    explicit descriptions(std::vector<thread *> threads)
    {
        for (thread *each : threads) {
            columns_.emplace_back().reserve(1); // an array also when it is empty
            for (const auto &column : each->columns) columns_.back().push_back(&column->def);
            indexes_.emplace_back();
            for (const auto &index : each->indexes) {
                keys_.push_back(
                    std::make_unique<goal>(*each, index.parts, std::vector<std::string>()));
                indexes_.back().push_back({static_cast<uint16_t>(index.type), 0,
                                           keys_.back()->key.numbva_kudckey,
                                           keys_.back()->key.arybva_kudckey, 0});
            }
        }
        for (std::size_t i = 0; i < threads.size(); i++)
            list.push_back({static_cast<uint16_t>(columns_[i].size()),
                            static_cast<uint16_t>(indexes_[i].size()), columns_[i].data(),
                            indexes_[i].data()});
    }
    std::vector<kudctddtdef> list;

private:
    std::vector<std::vector<kudxcoldef *>> columns_;
    std::vector<std::vector<kudciddtdef>> indexes_;
    std::vector<std::unique_ptr<goal>> keys_;
};

// A cache over scratch files in a directory of its own, which must be empty at the end.
class cache
{
public:
    explicit cache(context &ctx, uint16_t buffers = 3) : ctx_(ctx), skuf(skufcreate(ctx, buffers))
    {
    }
    cache(context &ctx, std::vector<thread *> threads, uint16_t buffers = 3) : cache(ctx, buffers)
    {
        status = create(descriptions(std::move(threads)).list);
    }
    cache(const cache &) = delete;
    cache &operator=(const cache &) = delete;
    ~cache()
    {
        destroy();
        skufdestroy(ctx_, skuf);
        EXPECT_EQ(dir.names(), std::vector<std::string>()) << "scratch files are left";
    }
    uint32_t create(const std::vector<kudctddtdef> &threads)
    {
        const std::string prefix = dir.path() + "/";
        return kudcftcreate(ctx_, nullptr, skuf, prefix.c_str(), prefix.c_str(),
                            static_cast<uint16_t>(threads.size()), threads.data(), &acmp);
    }
    uint32_t destroy()
    {
        const uint32_t result = kudcfdestroy(acmp);
        acmp = nullptr;
        return result;
    }
    kudcthddef *thread_of(std::size_t number = 0) const { return acmp->thrd_kudcacc + number; }
    kudcidxdef *index_of(std::size_t number = 0, std::size_t thread = 0) const
    {
        return thread_of(thread)->idxs_kudcthd + number;
    }
    // Bytes of a file, from a position on.
    std::string bytes(void *file, int32_t position, std::size_t count) const
    {
        std::string found(count, '\0');
        static_cast<skufv *>(file)->skufvpos = static_cast<uint32_t>(position);
        EXPECT_EQ(
            skufvmove(ctx_, skuf, file, found.data(), static_cast<uint32_t>(count), SKUFV_GET), 0u);
        return found;
    }
    std::string data(int32_t position, std::size_t count) const
    {
        return bytes(acmp->datf_kudcacc, position, count);
    }
    void put(void *file, int32_t position, std::string bytes) const
    {
        static_cast<skufv *>(file)->skufvpos = static_cast<uint32_t>(position);
        EXPECT_EQ(skufvmove(ctx_, skuf, file, bytes.data(), static_cast<uint32_t>(bytes.size()),
                            SKUFV_PUT),
                  0u);
    }

private:
    context &ctx_;

public:
    directory dir;
    void *skuf;
    kudcaccdef *acmp = nullptr;
    uint32_t status = 0; // of the creation
};

// Lets the first, second ... of each kind of system call fail. Not unlink: a scratch file that
// cannot be deleted has to stay.
inline void sweep_calls(const scenario &run)
{
    for (const std::string name : system_faults::names()) {
        if (name == "unlink") continue;
        for (int n = 1;; n++) {
            SCOPED_TRACE(name + " " + std::to_string(n) + " fails");
            context ctx;
            system_faults faults;
            faults.fail_from_now(name.c_str(), n, EIO);
            const bool succeeded = run(ctx);
            ctx.clear();
            if (faults.failed()) continue;
            EXPECT_TRUE(succeeded);
            break;
        }
    }
}

// Little-endian words, for expected file contents.
inline std::string word(int64_t value, int bytes = 4)
{
    std::string text;
    for (int i = 0; i < bytes; i++) text += static_cast<char>(value >> 8 * i & 0xFF);
    return text;
}

} // namespace ku::test

#endif
