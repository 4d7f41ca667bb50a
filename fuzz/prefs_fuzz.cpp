// Reads any bytes as a preference file, looks all of it up, writes it and reads
// that again. The first byte chooses the language.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "kul.h"
#include "kup.h"
#include "port/crt/crt.h"
#include "port/locale/locale.h"

namespace
{

const std::string &home()
{
    static const std::string &path = *new std::string([] { // lives until the clean-up at exit
        char pattern[] = "/tmp/kufuzzXXXXXX";
        std::string made = mkdtemp(pattern);
        // Nothing here is to outlive a crash: without waiting for the disk runs are quick.
        static ku::crt::system_calls calls = ku::crt::calls();
        calls.fsync = [](int) { return 0; };
        ku::crt::replace_calls(&calls);
        setenv("KU_UPREFS", made.c_str(), 1);
        setenv("KU_GPREFS", made.c_str(), 1);
        atexit([] {
            remove((home() + "/kuuprefs.xdb").c_str());
            remove((home() + "/kugprefs.xdb").c_str());
            remove(home().c_str());
        });
        return made;
    }());
    return path;
}

int entries(kux *ctx, kupct *prefs)
{
    int count = 0;
    for (void *list : {prefs->kupctugn, prefs->kupctusp, prefs->kupcttmp}) {
        for (int32_t i = 0; i < kulpnitems(ctx, list); i++) {
            // Default handles are addresses.
            const auto *entry = static_cast<const kuppf *>(kulpitem(ctx, list, i));
            void *values = nullptr;
            const uint16_t flag = (count & 1) != 0 ? KUP_NOSORT : 0xF000;
            kupget(prefs, reinterpret_cast<const char *>(entry->kuppfprf), flag, nullptr, &values);
            kulpdestroy(ctx, values);
            count++;
        }
    }
    return count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (size == 0) return 0;
    for (const char *name : {"/kuuprefs.xdb", "/kugprefs.xdb"})
        std::ofstream(home() + name, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes) + 1,
                   static_cast<std::streamsize>(size - 1));
    static const char *const languages[] = {"ascii", "iso-8859-1", "utf8",
                                            "sjis",  "euc-jp",     "iso-2022-kr"};
    kux *ctx = kuxcreate(nullptr);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, languages[bytes[0] % 6]);
    kupct *prefs = nullptr;
    if (kupopen(ctx, "prod", &prefs) != KUP_NOMEM) {
        const int before = entries(ctx, prefs);
        if (kupwrite(prefs) != 0) abort();
        kupclose(prefs);
        // A value with quotes in several lines may come back as more; nothing comes of nothing.
        kupopen(ctx, "prod", &prefs);
        if (entries(ctx, prefs) != 0 && before == 0) abort();
    }
    kupclose(prefs);
    kuxdestroy(ctx);
    return 0;
}
