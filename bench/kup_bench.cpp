// Reading preferences beside GLib's key files: a user file of 20,000 entries, in
// name order, as kupwrite leaves it, and in random order.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench/ratio.h"
#include "kup.h"

namespace
{

constexpr int entries = 20000;

// The same entries in a preference file and a key file of one group.
class files
{
public:
    explicit files(bool shuffled)
    {
        char pattern[] = "/tmp/kupbenchXXXXXX";
        path_ = mkdtemp(pattern);
        std::vector<std::string> lines;
        for (int i = 0; i < entries; i++) {
            char line[64];
            snprintf(line, sizeof line, "setting_%05d = value%d\n", i, i * 7);
            lines.push_back(line);
        }
        if (shuffled) std::shuffle(lines.begin(), lines.end(), std::mt19937(20));
        std::ofstream ours(path_ + "/kuuprefs.xdb");
        std::ofstream peers(keyfile());
        peers << "[group]\n";
        for (const std::string &line : lines) {
            ours << line;
            peers << line;
        }
        setenv("KU_UPREFS", path_.c_str(), 1);
        setenv("KU_GPREFS", path_.c_str(), 1);
    }
    ~files() { std::filesystem::remove_all(path_); }
    std::string keyfile() const { return path_ + "/keys"; }

private:
    std::string path_;
};

void read_preferences(benchmark::State &state, bool shuffled)
{
    const files made(shuffled);
    kux *ctx = kuxcreate(nullptr);
    for (auto _ : state) {
        kupct *prefs = nullptr;
        const uint16_t status = kupopen(ctx, "bench", &prefs);
        if (status != KUP_NOGLOBALFILE) state.SkipWithError("the user file was not read");
        kupclose(prefs);
    }
    kuxdestroy(ctx);
    state.SetItemsProcessed(state.iterations() * entries);
}

void read_keyfile(benchmark::State &state, bool shuffled)
{
    const files made(shuffled);
    for (auto _ : state) {
        GKeyFile *keys = g_key_file_new();
        if (!g_key_file_load_from_file(keys, made.keyfile().c_str(), G_KEY_FILE_NONE, nullptr))
            state.SkipWithError("the key file was not read");
        g_key_file_free(keys);
    }
    state.SetItemsProcessed(state.iterations() * entries);
}

void BM_kup_read_file_order(benchmark::State &state) { read_preferences(state, false); }
void BM_kup_read_random_order(benchmark::State &state) { read_preferences(state, true); }
void BM_glib_keyfile_file_order(benchmark::State &state) { read_keyfile(state, false); }
void BM_glib_keyfile_random_order(benchmark::State &state) { read_keyfile(state, true); }

BENCHMARK(BM_kup_read_file_order)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_glib_keyfile_file_order)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_kup_read_random_order)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_glib_keyfile_random_order)->Unit(benchmark::kMillisecond);

} // namespace

KU_RATIO("reading 20,000 preference entries", "BM_kup_read_file_order",
         "BM_glib_keyfile_file_order", 0.6, 1.2);
// Nothing is required of this row, and no ratio is below 0: it is there to be read.
KU_RATIO("reading 20,000 preference entries in random order", "BM_kup_read_random_order",
         "BM_glib_keyfile_random_order", 0, 0);
