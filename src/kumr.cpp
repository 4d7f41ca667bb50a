// kumr.cpp - reference cells: a count and who ends the object when it is 0
//
// The cell is the first member of its object, so one pointer serves for both.
// After the destroy callback the object is gone: nothing is read behind it.
#include "kumr.h"

#include <cstddef>
#include <cstdint>

static_assert(offsetof(kumr, refcount_kumr) == sizeof(void *), "clients read the cell");

namespace
{

kumr &kumrof(void *obj) { return *static_cast<kumr *>(obj); }

std::uint32_t kumrmask(const kumra *attrs) { return attrs != nullptr ? attrs->mask_kumra : 0; }

} // namespace

std::uint32_t kumrinit(kux *ctx, void *obj, const kumra *attrs)
{
    kumrof(obj) = {nullptr, 1};
    return kumrset(ctx, obj, attrs);
}

std::uint32_t kumrget(kux *, void *obj, kumra *attrs)
{
    const kumr &cell = kumrof(obj);
    const std::uint32_t mask = kumrmask(attrs);
    if ((mask & KUMRA_DESTROY) != 0) attrs->destroy_kumra = cell.destroy_kumr;
    if ((mask & KUMRA_REFCOUNT) != 0) attrs->refcount_kumra = cell.refcount_kumr;
    return 0;
}

std::uint32_t kumrset(kux *, void *obj, const kumra *attrs)
{
    if ((kumrmask(attrs) & KUMRA_DESTROY) != 0) kumrof(obj).destroy_kumr = attrs->destroy_kumra;
    return 0;
}

std::uint32_t kumrref(kux *, void *obj)
{
    kumrof(obj).refcount_kumr++;
    return 0;
}

std::uint32_t kumrdref(kux *ctx, void *obj)
{
    kumr &cell = kumrof(obj);
    if (cell.refcount_kumr == 0) return 0;
    cell.refcount_kumr--;
    return cell.refcount_kumr > 0 ? 0 : kumrdestroy(ctx, obj);
}

std::uint32_t kumrdestroy(kux *ctx, void *obj)
{
    const kumrdestroyfn destroy = kumrof(obj).destroy_kumr;
    return destroy != nullptr ? destroy(ctx, obj) : 0;
}
