// Unit tests of a FastCGI request's environment: which server entries a
// request inherits, names the request gives again, hostile names and
// values, and streams at and past the size and count limits (the block is
// allocated to its exact size, so the sanitizer tree sees any overrun).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fcgi/request_env.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

void put_length(Bytes &out, size_t n) {
    if (n < 128) {
        out.push_back((unsigned char)n);
        return;
    }
    out.push_back((unsigned char)(0x80 | (n >> 24)));
    out.push_back((unsigned char)(n >> 16));
    out.push_back((unsigned char)(n >> 8));
    out.push_back((unsigned char)n);
}

// A parameter stream; names and values may hold any byte, NUL included.
Bytes stream(const std::vector<std::pair<std::string, std::string>> &pairs) {
    Bytes out;
    for (const auto &[name, value] : pairs) {
        put_length(out, name.size());
        put_length(out, value.size());
        out.insert(out.end(), name.begin(), name.end());
        out.insert(out.end(), value.begin(), value.end());
    }
    return out;
}

struct Built {
    int status;
    const char *error = nullptr;
    Strings entries;
};

Built build(const Bytes &params, Strings server = {}) {
    std::vector<char *> env;
    for (auto &s : server) env.push_back(s.data());
    env.push_back(nullptr);
    std::vector<char *> kept(FCGI_SERVER_ENV_MAX);
    int count = fcgi_server_entries(env.data(), kept.data(), FCGI_SERVER_ENV_MAX);
    auto space = std::make_unique<unsigned char[]>(FCGI_ENV_SPACE);
    char **out = nullptr;
    Built b;
    b.status = fcgi_request_environment(params.data(), params.size(), kept.data(), count,
                                        space.get(), &out, &b.error);
    for (char **e = out; *e; e++) b.entries.push_back(*e);
    return b;
}

TEST(FcgiRequestEnv, ServerEntriesWithoutRequestNames) {
    Built b = build({}, {"PATH=/bin", "REQUEST_METHOD=GET", "HTTP_HOST=old", "NOEQUALS", "=x",
                         "V_HOME=/a", "HTTPS=on", "PATH=/usr/bin", "HTTP=kept"});
    EXPECT_EQ(b.status, 0);
    // a name given twice keeps its first place and its last value
    EXPECT_EQ(b.entries, (Strings{"PATH=/usr/bin", "V_HOME=/a", "HTTP=kept"}));
}

TEST(FcgiRequestEnv, RequestReplacesInheritedNames) {
    Built b = build(stream({{"V_HOME", "/evil"}, {"QUERY_STRING", "a=1"}, {"LANG", "C"}}),
                    {"PATH=/bin", "V_HOME=/site", "LANG=de", "TZ=UTC"});
    EXPECT_EQ(b.status, 0);
    EXPECT_EQ(b.entries,
              (Strings{"PATH=/bin", "TZ=UTC", "V_HOME=/evil", "QUERY_STRING=a=1", "LANG=C"}));
}

TEST(FcgiRequestEnv, HostileNamesAndValues) {
    using namespace std::string_literals;
    Built b = build(stream({{"A=B", "1"},
                            {""s, "empty"},
                            {"N\0UL"s, "2"},
                            {"CUT", "front\0back"s},
                            {"X", "1"},
                            {"EMPTY", ""},
                            {"X", "2"},
                            {"X", "3"}}));
    EXPECT_EQ(b.status, 0);
    EXPECT_EQ(b.entries, (Strings{"CUT=front", "X=3", "EMPTY="}));
    char *env[] = {b.entries[0].data(), b.entries[1].data(), b.entries[2].data(), nullptr};
    EXPECT_STREQ(fcgi_env_value(env, "X"), "3");
    EXPECT_STREQ(fcgi_env_value(env, "EMPTY"), "");
    EXPECT_EQ(fcgi_env_value(env, "CU"), nullptr);
}

TEST(FcgiRequestEnv, BrokenStreamKeepsPairsBeforeTheFault) {
    Bytes params = stream({{"A", "1"}, {"B", "2"}});
    params.push_back(5);
    params.push_back(100);   // a value length past the end
    params.push_back('C');
    Built b = build(params, {"PATH=/bin"});
    EXPECT_EQ(b.status, -1);
    ASSERT_NE(b.error, nullptr);
    EXPECT_EQ(b.entries, (Strings{"PATH=/bin", "A=1", "B=2"}));
}

TEST(FcgiRequestEnv, LimitsOfTheBlock) {
    // the most pairs a stream may hold, with the most server entries
    std::vector<std::pair<std::string, std::string>> many;
    for (int i = 0; i < FCGI_PAIRS_MAX; i++) many.push_back({"N" + std::to_string(i), ""});
    Strings server;
    for (int i = 0; i < FCGI_SERVER_ENV_MAX + 5; i++)
        server.push_back("S" + std::to_string(i) + "=v");
    Built b = build(stream(many), server);
    EXPECT_EQ(b.status, 0);
    EXPECT_EQ(b.entries.size(), (size_t)(FCGI_SERVER_ENV_MAX + FCGI_PAIRS_MAX));

    // a whole FCGI_PARAMS_MAX stream of long values fits; one byte more is refused
    std::string big(FCGI_PARAMS_MAX / 2 - 9, 'v');
    Bytes full = stream({{"A", big}, {"B", big}});
    ASSERT_LE(full.size(), FCGI_PARAMS_MAX);
    full.resize(FCGI_PARAMS_MAX, 0);   // the rest as pairs with empty names
    b = build(full, {"PATH=/bin"});
    EXPECT_EQ(b.status, 0);
    ASSERT_EQ(b.entries.size(), 3u);
    EXPECT_EQ(b.entries[2], "B=" + big);
    full.push_back(0);
    full.push_back(0);
    b = build(full, {"PATH=/bin"});
    EXPECT_EQ(b.status, -1);
    EXPECT_EQ(b.entries, (Strings{"PATH=/bin"}));
    // past FCGI_PAIRS_MAX pairs the stream is refused
    many.push_back({"LAST", "x"});
    b = build(stream(many));
    EXPECT_EQ(b.status, -1);
    EXPECT_EQ(b.entries.size(), (size_t)FCGI_PAIRS_MAX);
}

}   // namespace
