// Unit tests of the FastCGI record reader on what a peer may send: short
// and broken headers, records cut anywhere, name-value lengths that point
// past their stream, and the bounds of the writer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fcgi/records.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes record(int type, int id, const Bytes &content, int padding, int version = FCGI_VERSION) {
    Bytes r(FCGI_HEADER_SIZE + content.size() + (size_t)padding, 0);
    r[0] = (unsigned char)version;
    r[1] = (unsigned char)type;
    r[2] = (unsigned char)(id >> 8);
    r[3] = (unsigned char)id;
    r[4] = (unsigned char)(content.size() >> 8);
    r[5] = (unsigned char)content.size();
    r[6] = (unsigned char)padding;
    for (size_t i = 0; i < content.size(); i++) r[FCGI_HEADER_SIZE + i] = content[i];
    return r;
}

std::vector<std::string> decoded;
void keep_pair(const unsigned char *n, size_t nl, const unsigned char *v, size_t vl, void *) {
    decoded.push_back(std::string((const char *)n, nl) + "=" + std::string((const char *)v, vl));
}

int decode(const Bytes &data, const char **error) {
    decoded.clear();
    return fcgi_pairs(data.data(), data.size(), keep_pair, nullptr, error);
}

TEST(FcgiRecords, WholeRecordsOnlyAndPaddingSkipped) {
    Bytes r = record(FCGI_STDIN, 258, Bytes(300, 'x'), 255);
    const char *error = nullptr;
    FcgiRecord rec;
    // every cut short of the whole record, padding included, asks for more
    for (size_t cut = 0; cut < r.size(); cut++)
        ASSERT_EQ(fcgi_next_record(r.data(), cut, &rec, &error), 0) << cut;
    Bytes two = r;
    Bytes next = record(FCGI_PARAMS, 1, {}, 0);
    two.insert(two.end(), next.begin(), next.end());
    ASSERT_EQ(fcgi_next_record(two.data(), two.size(), &rec, &error), 1);
    EXPECT_EQ(rec.h.type, FCGI_STDIN);
    EXPECT_EQ(rec.h.id, 258);
    EXPECT_EQ(rec.h.content_length, 300u);
    EXPECT_EQ(rec.used, r.size());
    EXPECT_EQ(rec.content, two.data() + FCGI_HEADER_SIZE);
    ASSERT_EQ(fcgi_next_record(two.data() + rec.used, two.size() - rec.used, &rec, &error), 1);
    EXPECT_EQ(rec.h.type, FCGI_PARAMS);
}

TEST(FcgiRecords, LargestRecordAndBadVersion) {
    Bytes big = record(FCGI_STDIN, 1, Bytes(FCGI_CONTENT_MAX, 'y'), FCGI_PADDING_MAX);
    ASSERT_EQ(big.size(), FCGI_RECORD_MAX);
    const char *error = nullptr;
    FcgiRecord rec;
    ASSERT_EQ(fcgi_next_record(big.data(), big.size(), &rec, &error), 1);
    EXPECT_EQ(rec.h.content_length, FCGI_CONTENT_MAX);
    for (int version : {0, 2, 255}) {
        Bytes bad = record(FCGI_BEGIN_REQUEST, 1, Bytes(8, 0), 0, version);
        EXPECT_EQ(fcgi_next_record(bad.data(), bad.size(), &rec, &error), -1) << version;
        EXPECT_STREQ(error, "FastCGI record of an unknown version");
    }
}

TEST(FcgiRecords, PairsShortAndLongLengths) {
    Bytes data = {3, 0, 'O', 'N', 'E', 0x80, 0, 0, 1, 0x80, 0, 1, 0};
    data.insert(data.end(), 1, 'L');
    data.insert(data.end(), 256, 'v');
    const char *error = nullptr;
    ASSERT_EQ(decode(data, &error), 2);
    EXPECT_EQ(decoded[0], "ONE=");
    EXPECT_EQ(decoded[1], "L=" + std::string(256, 'v'));
}

TEST(FcgiRecords, PairLengthsPastTheStreamAreRefused) {
    const char *error = nullptr;
    struct Case {
        const char *what;
        Bytes data;
    } cases[] = {
        {"name past the end", {5, 0, 'a', 'b'}},
        {"value past the end", {1, 5, 'a', 'b'}},
        {"long length cut", {0x80, 0, 0}},
        {"value length missing", {1}},
        // a four-byte length near 2^31 must not wrap the position
        {"huge name", {0xff, 0xff, 0xff, 0xff, 1, 'a', 'b'}},
        {"huge value", {1, 0xff, 0xff, 0xff, 0xff, 'a', 'b'}},
    };
    for (const auto &c : cases) {
        error = nullptr;
        EXPECT_EQ(decode(c.data, &error), -1) << c.what;
        EXPECT_NE(error, nullptr) << c.what;
        EXPECT_TRUE(decoded.empty()) << c.what;
    }
    // the pairs before a broken one were passed on
    Bytes tail = {1, 1, 'a', 'b', 9, 9, 'c'};
    EXPECT_EQ(decode(tail, &error), -1);
    ASSERT_EQ(decoded.size(), 1u);
    EXPECT_EQ(decoded[0], "a=b");
}

TEST(FcgiRecords, TooManyPairs) {
    Bytes data;
    for (int i = 0; i <= FCGI_PAIRS_MAX; i++) data.insert(data.end(), {1, 0, 'n'});
    const char *error = nullptr;
    EXPECT_EQ(decode(data, &error), -1);
    EXPECT_STREQ(error, "FastCGI request with too many parameters");
    EXPECT_EQ(decoded.size(), (size_t)FCGI_PAIRS_MAX);
}

TEST(FcgiRecords, WriterPadsAndStaysInBounds) {
    unsigned char header[FCGI_HEADER_SIZE];
    for (size_t n : {0, 1, 7, 8, 9, 65535}) {
        size_t pad = fcgi_put_header(header, FCGI_STDOUT, 513, n);
        EXPECT_EQ((n + pad) % 8, 0u) << n;
        EXPECT_LT(pad, 8u);
        FcgiHeader h;
        const char *error = nullptr;
        ASSERT_EQ(fcgi_header(header, &h, &error), 0);
        EXPECT_EQ(h.content_length, n);
        EXPECT_EQ(h.id, 513);
        EXPECT_EQ(h.padding_length, pad);
    }
    unsigned char out[10];
    size_t used = 0;
    EXPECT_EQ(fcgi_put_pair(out, sizeof out, &used, "NAME", "VAL"), 0);
    EXPECT_EQ(used, 9u);
    EXPECT_EQ(fcgi_put_pair(out, sizeof out, &used, "X", ""), -1);   // 3 bytes, 1 left
    EXPECT_EQ(used, 9u);
    const char *error = nullptr;
    decoded.clear();
    EXPECT_EQ(fcgi_pairs(out, used, keep_pair, nullptr, &error), 1);
    EXPECT_EQ(decoded[0], "NAME=VAL");
}

}   // namespace
