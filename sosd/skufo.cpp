// skufo.cpp - raw files: opening with a code for every reason, closing, deleting
//
// Everything that takes memory is done before the file is opened, so that a file
// is not created for nothing. Whether the file was denied, missing or in use is
// found out by asking again once the opening has failed.

#include "skufo.h"

#include <cerrno>

#include "../port/crt/crt.h"
#include "kuguard.h"
#include "skuf_internal.h"

namespace crt = ku::crt;

// The code for a file that the system denied.
static uint32_t skufodenied(kux *ctx, const char *path)
{
    if (!crt::accessible(ctx->kuxlangidh, path, crt::reach::exists)) return SKUFA_DENIED;
    const bool writable = crt::accessible(ctx->kuxlangidh, path, crt::reach::writable);
    return writable ? SKUFA_INUSE : SKUFA_READONLY;
}

// The code for a failed opening, by the system's reason.
static uint32_t skufoexplain(kux *ctx, const char *path, int reason)
{
    switch (reason) {
    case EPERM:
    case EACCES:
    case EROFS: return skufodenied(ctx, path);
    case ENOENT:
    case ENOTDIR:
    case EISDIR: return SKUFA_NOTFOUND;
    case ENFILE:
    case EMFILE: return SKUFA_TOOMANY;
    default: return SKUFA_OPEN;
    }
}

static unsigned skufobits(uint16_t mode)
{
    const uint32_t scratch = SKUF_NEW | SKUF_TEMPORARY;
    return ((mode & (SKUF_NEW | SKUF_CREATE)) != 0 ? crt::low_create : 0)
           | ((mode & SKUF_NEW) != 0 ? crt::low_empty : 0)
           // Its name can be guessed, and its directory is often everybody's.
           | ((mode & scratch) == scratch ? crt::low_fresh : 0);
}

// Opens the descriptor and positions it. Returns 0 or the code, not pushed.
static uint32_t skufostart(kux *ctx, skufo *file, const char *path, uint16_t mode)
{
    const unsigned bits = skufobits(mode);
    file->skufoid = crt::low_open(ctx->kuxlangidh, path, bits);
    if (file->skufoid < 0) return skufoexplain(ctx, path, errno);
    if ((mode & SKUF_APPEND) != 0 && crt::low_seek(file->skufoid, 0, crt::origin::end) < 0) {
        crt::low_close(file->skufoid);
        return SKUFA_SEEK;
    }
    if ((bits & crt::low_fresh) != 0) file->skufoscratch = crt::map_scratch(file->skufoid);
    return 0;
}

skufo *skufoopen(kux *ctx, const char *path, uint16_t mode)
{
    ku::owned<skufo> file(ctx, ku::allocate<skufo>(ctx));
    if (!file) return nullptr;
    *file.get() = skufo{};
    if (path == nullptr || path[0] == 0) {
        kuxer0push(ctx, path == nullptr ? SKUFA_NULLNAME : SKUFA_NONAME);
        return nullptr;
    }
    ku::owned<char> name(ctx, skufcopy(ctx, path));
    if (!name) return nullptr;
    const uint32_t code = skufostart(ctx, file.get(), path, mode);
    if (code != 0) {
        kuxer0push(ctx, code);
        return nullptr;
    }
    file->skufoname = name.keep();
    return file.keep();
}

// Closes the descriptor, once; descriptor 1 stays open. False when closing failed.
static bool skufoshut(skufo *file)
{
    crt::unmap_scratch(file->skufoscratch);
    file->skufoscratch = nullptr;
    const int32_t descriptor = file->skufoid;
    file->skufoid = -1; // gone, whether or not closing works
    return descriptor < 0 || descriptor == 1 || crt::low_close(descriptor);
}

static void skuforelease(kux *ctx, skufo *file)
{
    if (file->skufotbufp != nullptr) ctx->kuxnmfree(ctx, file->skufotbufp);
    if (file->skufoname != nullptr) ctx->kuxnmfree(ctx, file->skufoname);
    ctx->kuxnmfree(ctx, file);
}

void skufoend(kux *ctx, skufo *file, bool tell)
{
    if (!skufoshut(file) && tell) kuxer1push(ctx, SKUFA_CLOSE, file->skufoname);
    skuforelease(ctx, file);
}

skufo *skufoclose(kux *ctx, skufo *file)
{
    if (file == nullptr)
        kuxer0push(ctx, SKUFA_CLOSE);
    else if (!skufoshut(file))
        kuxer1push(ctx, SKUFA_CLOSE, file->skufoname);
    else
        skuforelease(ctx, file);
    return nullptr;
}

uint32_t skufodelete(kux *ctx, const char *path)
{
    return crt::remove_file(ctx->kuxlangidh, path) ? 0 : SKUFA_REMOVE;
}
