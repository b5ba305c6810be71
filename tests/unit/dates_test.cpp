// Unit tests of the date formats: writing and reading every token, range
// errors, year tokens, and the seconds conversions in two time zones.
#include "values/dates.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

const datetime_t kSample{2008, 3, 7, 9, 5, 4};

std::string write(const char *format, int *rc = nullptr) {
    char buff[V_DATE_TEXT_MAX];
    datetime_t dt = kSample;
    int r = SETdate(&dt, format, buff, 1);
    if (rc) *rc = r;
    return buff;
}

datetime_t read(const char *text, const char *format, int *rc) {
    datetime_t dt{};
    std::string copy = text;
    *rc = SETdate(&dt, format, copy.data(), 0);
    return dt;
}

long long packed(const datetime_t &dt) {
    return dt.year * 10000000000LL + dt.month * 100000000LL + dt.day * 1000000LL +
           dt.hour * 10000LL + dt.minute * 100LL + dt.second;
}

struct tm today() {
    time_t now = time(nullptr);
    struct tm tmr {};
    localtime_r(&now, &tmr);
    return tmr;
}

TEST(DatesTest, WritesEveryTokenAndSeparator) {
    const char *rows[][2] = {
        {"YYYY-MM-DD HH:MI:SS", "2008-03-07 09:05:04"},
        {"yyyy/mm/dd hh.mi.ss", "2008/03/07 09.05.04"},
        {"JJ+jj#AAAA!aaaa", "07+07#2008!2008"},
        {"YYY AAA yyy aaa YY AA yy aa Y A y a", "008 008 008 008 08 08 08 08 8 8 8 8"},
        {"DD\tDD%DD:DD", "07\t07%07:07"},
        {"YYYYMMDDHHMISS", "20080307090504"},
        {"", ""},
    };
    for (auto &row : rows) {
        int rc = 1;
        EXPECT_EQ(write(row[0], &rc), row[1]);
        EXPECT_EQ(rc, 0) << row[0];
    }
    // Unknown letters (mixed case included) are copied and fail the call.
    int rc = 0;
    EXPECT_EQ(write("DD Q Mi", &rc), "07 Q Mi");
    EXPECT_EQ(rc, -1);
    uint16_t f[6];
    V_date_info(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
    EXPECT_EQ(f[0] + f[1] + f[3] + f[4] + f[5], 0);
    EXPECT_EQ(f[2], 1);
}

TEST(DatesTest, ReadsBackWhatItWrites) {
    int rc = 1;
    datetime_t dt = read(write("ss:mi:hh dd.mm.yyyy").c_str(), "ss:mi:hh dd.mm.yyyy", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(packed(dt), packed(kSample));
    uint16_t f[6];
    V_date_info(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
    EXPECT_EQ(f[0] + f[1] + f[2] + f[3] + f[4] + f[5], 6);
    // Fewer digits than the token allows; a separator skips any character.
    dt = read("1/2/2008 7x8", "DD/MM/YYYY HH:MI", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(dt.day * 100 + dt.month, 102);
    EXPECT_EQ(dt.hour * 100 + dt.minute, 708);
    // An unknown format character takes no text.
    EXPECT_EQ(read("07", "QDD", &rc).day, 7);
    EXPECT_EQ(rc, -1);
}

TEST(DatesTest, RangeErrorsStoreTheFloorAndGoOn) {
    struct Row {
        const char *text, *format;
        int rc, value;
        uint8_t datetime_t::*field;
    } rows[] = {
        {"13", "MM", -1, 1, &datetime_t::month},  {"12", "mm", 0, 12, &datetime_t::month},
        {"32", "DD", -1, 1, &datetime_t::day},    {"31", "jj", 0, 31, &datetime_t::day},
        {"00", "DD", -1, 1, &datetime_t::day},    {"x", "dd", -1, 1, &datetime_t::day},
        {"24", "HH", -1, 0, &datetime_t::hour},   {"23", "hh", 0, 23, &datetime_t::hour},
        {"60", "MI", -1, 0, &datetime_t::minute}, {"59", "mi", 0, 59, &datetime_t::minute},
        {"60", "SS", -1, 0, &datetime_t::second}, {"59", "ss", 0, 59, &datetime_t::second},
    };
    for (const Row &row : rows) {
        int rc = 1;
        datetime_t dt = read(row.text, row.format, &rc);
        EXPECT_EQ(rc, row.rc) << row.format << " <- " << row.text;
        EXPECT_EQ(dt.*row.field, row.value) << row.format << " <- " << row.text;
    }
    int rc = 0;
    datetime_t dt = read("13-25-2010", "MM-DD-YYYY", &rc);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(dt.month * 100 + dt.day, 125);
    EXPECT_EQ(dt.year, 2010);
}

TEST(DatesTest, ShortYearsKeepTheCurrentCentury) {
    int year = today().tm_year + 1900, rc = 1;
    EXPECT_EQ(read("08", "yy", &rc).year, year / 100 * 100 + 8);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(read("123", "AAA", &rc).year, year / 1000 * 1000 + 123);
    EXPECT_EQ(read("08", "YYYY", &rc).year, 8);
    // One digit for "y": the next ones go to the following token.
    datetime_t dt = read("512", "yMM", &rc);
    EXPECT_EQ(dt.year, year / 10 * 10 + 5);
    EXPECT_EQ(dt.month, 12);
    // A year without digits is an error and keeps the current year.
    EXPECT_EQ(read("ab", "YYYY", &rc).year, year);
    EXPECT_EQ(rc, -1);
}

TEST(DatesTest, AbsentFieldsKeepTodayAndMidnight) {
    struct tm now = today();
    int rc = 1;
    datetime_t dt = read("24/12", "dd/mm", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(dt.year, now.tm_year + 1900);
    EXPECT_EQ(dt.month * 100 + dt.day, 1224);
    EXPECT_EQ(dt.hour + dt.minute + dt.second, 0);
}

TEST(DatesTest, LongFormatIsCutAtTheBufferSize) {
    std::string format(2000, 'Y');
    std::string text = write(format.c_str());
    EXPECT_EQ(text.size(), size_t(V_DATE_TEXT_MAX - 1));
    EXPECT_EQ(text.substr(0, 8), "20082008");
}

// Runs with TZ set to one zone and restores the previous TZ afterwards.
class DatesZoneTest : public testing::Test {
protected:
    void use_zone(const char *zone) {
        const char *old = getenv("TZ");
        had_tz = old != nullptr;
        saved = old ? old : "";
        setenv("TZ", zone, 1);
        tzset();
    }
    void TearDown() override {
        if (had_tz)
            setenv("TZ", saved.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    bool had_tz = false;
    std::string saved;
};

TEST_F(DatesZoneTest, SecondsRoundTripInUtc) {
    use_zone("UTC");
    char buff[V_DATE_TEXT_MAX];
    EXPECT_EQ(V_dt2str(1700000000, "DD.MM.YY HH:MI:SS", buff), 0);
    EXPECT_STREQ(buff, "14.11.23 22:13:20");
    long dt = 0;
    EXPECT_EQ(V_str2dt("2023-11-14", "YYYY-MM-DD", &dt), 0);
    EXPECT_EQ(dt, 1699920000);
    const long samples[] = {0, 86399, 951782400, 1709251199, 2147483647, 4102444800};
    for (long s : samples) {
        V_dt2str(s, "SS MI HH DD MM YYYY", buff);
        long back = -1;
        EXPECT_EQ(V_str2dt(buff, "SS MI HH DD MM YYYY", &back), 0);
        EXPECT_EQ(back, s) << buff;
    }
}

TEST_F(DatesZoneTest, SummerTimeHourIsCorrected) {
    use_zone("Europe/Berlin");
    long dt = 0;
    // Winter: one hour ahead of UTC, no correction.
    V_str2dt("2024-01-15 12:00:00", "YYYY-MM-DD HH:MI:SS", &dt);
    EXPECT_EQ(dt, 1705316400);
    // Summer: read as standard time first, then one hour taken off.
    V_str2dt("2024-07-01 12:00:00", "YYYY-MM-DD HH:MI:SS", &dt);
    EXPECT_EQ(dt, 1719828000);
    char buff[V_DATE_TEXT_MAX];
    V_dt2str(1719828000, "HH:MI", buff);
    EXPECT_STREQ(buff, "12:00");
}

}   // namespace
