// c_client_test.cpp - the headers are usable from C, and each family does its main job for such a client
#include "c_client.h"

#include <gtest/gtest.h>

#include "support/context.h"
#include "support/files.h"

namespace
{

TEST(CClient, UsesEachFamilyOnce)
{
    for (const c_client_family *family = c_client_families; family->name != nullptr; family++) {
        SCOPED_TRACE(family->name);
        ku::test::context ctx;
        ku::test::directory directory;
        ku::test::variable global("KU_GPREFS", directory.path());
        ku::test::variable user("KU_UPREFS", directory.path());
        ku::test::variable modules("KU_SYSDIR", KU_BINARY_DIR);
        const char *broken = family->use(ctx, directory.path().c_str());
        EXPECT_EQ(broken, nullptr) << broken << ", errors " << testing::PrintToString(ctx.errors());
    }
}

} // namespace
