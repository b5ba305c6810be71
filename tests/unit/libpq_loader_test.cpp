// Loading libpq at run time: a missing library and one without libpq's
// functions are refused with a message that names them and leave the table
// as it was; the real one fills every pointer, and a call through the table
// reaches libpq.
#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>
#include <string>

#include "db/libpq_loader.h"

namespace {

// A table whose every byte is a marker, so that a partly filled one shows.
V_LIBPQ marked() {
    V_LIBPQ t;
    memset(&t, 0x5a, sizeof t);
    return t;
}

bool unchanged(const V_LIBPQ &t) {
    V_LIBPQ mark = marked();
    return memcmp(&t, &mark, sizeof t) == 0;
}

TEST(LibpqLoader, RefusesAMissingOrForeignLibraryAndNamesIt) {
    char err[512];
    V_LIBPQ t = marked();
    // 1 not installed
    EXPECT_EQ(V_libpq_load("libvorn-absent-pq.so.5", &t, err, sizeof err), -1);
    EXPECT_EQ(std::string(err).rfind(
                  "PostgreSQL client library libvorn-absent-pq.so.5 is not installed", 0),
              0u)
        << err;
    EXPECT_NE(strstr(err, "libvorn-absent-pq.so.5: cannot open shared object file"), nullptr)
        << err;
    EXPECT_TRUE(unchanged(t));
    // 2 a library that loads but is not libpq
    EXPECT_EQ(V_libpq_load("libm.so.6", &t, err, sizeof err), -1);
    EXPECT_STREQ(err, "PostgreSQL client library libm.so.6 has no function PQconnectdbParams");
    EXPECT_TRUE(unchanged(t));
    // 3 the message is cut to the buffer
    char small[20];
    memset(small, 'x', sizeof small);
    EXPECT_EQ(V_libpq_load("libvorn-absent-pq.so.5", &t, small, sizeof small), -1);
    EXPECT_EQ(strlen(small), sizeof small - 1);
}

TEST(LibpqLoader, FillsEveryFunctionFromTheRealLibrary) {
    char err[512] = "";
    V_LIBPQ t = marked();
    ASSERT_EQ(V_libpq_load(V_LIBPQ_NAME, &t, err, sizeof err), 0) << err;
    void *lib = dlopen(V_LIBPQ_NAME, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(lib, nullptr);
#define EXPECT_RESOLVED(name)                                                                      \
    EXPECT_EQ(reinterpret_cast<void *>(t.name), dlsym(lib, #name)) << #name;
    V_LIBPQ_FUNCTIONS(EXPECT_RESOLVED)
#undef EXPECT_RESOLVED
    dlclose(lib);

    // a server that is not there, through the table
    const char *keys[] = {"host", "connect_timeout", nullptr};
    const char *values[] = {"/nonexistent-vorn-dir", "2", nullptr};
    PGconn *c = t.PQconnectdbParams(keys, values, 0);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(t.PQstatus(c), CONNECTION_BAD);
    EXPECT_NE(strstr(t.PQerrorMessage(c), "/nonexistent-vorn-dir"), nullptr) << t.PQerrorMessage(c);
    t.PQfinish(c);
}

}   // namespace
