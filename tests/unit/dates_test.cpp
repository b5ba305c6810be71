// Unit tests of the date formats: writing and reading every token, range
// errors, year tokens, and the seconds conversions in two time zones.
#include "values/dates.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

datetime_t sample()
{
    datetime_t dt{};
    dt.year = 2008;
    dt.month = 3;
    dt.day = 7;
    dt.hour = 9;
    dt.minute = 5;
    dt.second = 4;
    return dt;
}

std::string write(datetime_t dt, const char *format, int *rc = nullptr)
{
    char buff[V_DATE_TEXT_MAX];
    int r = SETdate(&dt, format, buff, 1);
    if (rc)
        *rc = r;
    return buff;
}

datetime_t read(const char *text, const char *format, int *rc)
{
    datetime_t dt{};
    std::string copy = text;
    *rc = SETdate(&dt, format, copy.data(), 0);
    return dt;
}

int this_year()
{
    time_t now = time(nullptr);
    struct tm tmr {};
    localtime_r(&now, &tmr);
    return tmr.tm_year + 1900;
}

TEST(DatesTest, WritesEveryToken)
{
    struct Row {
        const char *format;
        const char *text;
    } rows[] = {
        {"YYYY-MM-DD HH:MI:SS", "2008-03-07 09:05:04"},
        {"yyyy/mm/dd hh.mi.ss", "2008/03/07 09.05.04"},
        {"JJ/MM/AAAA", "07/03/2008"},
        {"jj+mm#aaaa", "07+03#2008"},
        {"YYY|", "008|"},
        {"YYY AAA yyy aaa", "008 008 008 008"},
        {"YY AA yy aa", "08 08 08 08"},
        {"Y A y a", "8 8 8 8"},
        {"DD\tDD DD!DD#DD%DD+DD-DD.DD/DD:DD", "07\t07 07!07#07%07+07-07.07/07:07"},
        {"YYYYMMDDHHMISS", "20080307090504"},
        {"", ""},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.format);
        int rc = 1;
        std::string text = write(sample(), row.format, &rc);
        // "|" is not a separator: copied, with an error result.
        EXPECT_EQ(rc, strchr(row.format, '|') ? -1 : 0);
        EXPECT_EQ(text, row.text);
    }
    EXPECT_EQ(write(sample(), "YYYY-MM-DD HH:MI:SS").size(), 19u);
}

TEST(DatesTest, UnknownFormatLetterIsCopiedAndFails)
{
    int rc = 0;
    EXPECT_EQ(write(sample(), "DD Q MM", &rc), "07 Q 03");
    EXPECT_EQ(rc, -1);
    // Mixed case is no token.
    EXPECT_EQ(write(sample(), "Mi", &rc), "Mi");
    EXPECT_EQ(rc, -1);
}

TEST(DatesTest, FieldFlagsFollowTheLastFormat)
{
    uint16_t y, mo, d, h, mi, s;
    write(sample(), "YY-MM");
    V_date_info(&y, &mo, &d, &h, &mi, &s);
    EXPECT_EQ(y + mo * 2 + d * 4 + h * 8 + mi * 16 + s * 32, 1 + 2);
    int rc;
    read("07 09:05:04", "JJ HH:MI:SS", &rc);
    V_date_info(&y, &mo, &d, &h, &mi, &s);
    EXPECT_EQ(y + mo * 2 + d * 4 + h * 8 + mi * 16 + s * 32, 4 + 8 + 16 + 32);
}

TEST(DatesTest, ReadsBackWhatItWrites)
{
    const char *formats[] = {"YYYY-MM-DD HH:MI:SS", "ss:mi:hh dd.mm.yyyy", "AAAAMMJJHHMISS"};
    for (const char *format : formats) {
        SCOPED_TRACE(format);
        int rc = 1;
        datetime_t dt = read(write(sample(), format).c_str(), format, &rc);
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(dt.year, 2008);
        EXPECT_EQ(dt.month, 3);
        EXPECT_EQ(dt.day, 7);
        EXPECT_EQ(dt.hour, 9);
        EXPECT_EQ(dt.minute, 5);
        EXPECT_EQ(dt.second, 4);
    }
}

TEST(DatesTest, ReadDigitsAndSeparators)
{
    int rc = 1;
    // Fewer digits than the token allows; a separator skips any character.
    datetime_t dt = read("1/2/2008 7x8", "DD/MM/YYYY HH:MI", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(dt.day, 1);
    EXPECT_EQ(dt.month, 2);
    EXPECT_EQ(dt.year, 2008);
    EXPECT_EQ(dt.hour, 7);
    EXPECT_EQ(dt.minute, 8);
    // Separators past the end of the text stop there.
    dt = read("2008", "YYYY----MM", &rc);
    EXPECT_EQ(dt.year, 2008);
    EXPECT_EQ(dt.month, 1);
    EXPECT_EQ(rc, -1);
    // An unknown format character takes no text.
    dt = read("07", "QDD", &rc);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(dt.day, 7);
}

TEST(DatesTest, RangeErrorsStoreTheFloor)
{
    struct Row {
        const char *text;
        const char *format;
        int rc;
        int value;
    } rows[] = {
        {"13", "MM", -1, 1}, {"12", "MM", 0, 12}, {"00", "mm", -1, 1},
        {"32", "DD", -1, 1}, {"31", "jj", 0, 31}, {"0", "DD", -1, 1},
        {"24", "HH", -1, 0}, {"23", "hh", 0, 23}, {"60", "MI", -1, 0},
        {"59", "mi", 0, 59}, {"60", "SS", -1, 0}, {"59", "ss", 0, 59},
        {"", "DD", -1, 1},   {"x", "MM", -1, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.format) + " <- [" + row.text + "]");
        int rc = 1;
        datetime_t dt = read(row.text, row.format, &rc);
        EXPECT_EQ(rc, row.rc);
        int got = 0;
        switch (row.format[0]) {
        case 'M': got = row.format[1] == 'I' ? dt.minute : dt.month; break;
        case 'm': got = row.format[1] == 'i' ? dt.minute : dt.month; break;
        case 'D': case 'j': got = dt.day; break;
        case 'H': case 'h': got = dt.hour; break;
        default: got = dt.second; break;
        }
        EXPECT_EQ(got, row.value);
    }
    // The walk goes on after an error.
    int rc = 0;
    datetime_t dt = read("13-25-2010", "MM-DD-YYYY", &rc);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(dt.month, 1);
    EXPECT_EQ(dt.day, 25);
    EXPECT_EQ(dt.year, 2010);
}

TEST(DatesTest, ShortYearsKeepTheCurrentCentury)
{
    int year = this_year(), rc = 1;
    EXPECT_EQ(read("08", "yy", &rc).year, year / 100 * 100 + 8);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(read("5", "y", &rc).year, year / 10 * 10 + 5);
    EXPECT_EQ(read("123", "AAA", &rc).year, year / 1000 * 1000 + 123);
    EXPECT_EQ(read("7", "aa", &rc).year, year / 100 * 100 + 7);
    EXPECT_EQ(read("08", "YYYY", &rc).year, 8);
    // Only one digit for "y": the next goes to the following token.
    datetime_t dt = read("512", "yMM", &rc);
    EXPECT_EQ(dt.year, year / 10 * 10 + 5);
    EXPECT_EQ(dt.month, 12);
    // A year without digits is an error and keeps the current year.
    EXPECT_EQ(read("ab", "YYYY", &rc).year, year);
    EXPECT_EQ(rc, -1);
}

TEST(DatesTest, AbsentFieldsKeepTodayAndMidnight)
{
    time_t now = time(nullptr);
    struct tm today {};
    localtime_r(&now, &today);
    int rc = 1;
    datetime_t dt = read("24/12", "dd/mm", &rc);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(dt.year, today.tm_year + 1900);
    EXPECT_EQ(dt.month, 12);
    EXPECT_EQ(dt.day, 24);
    EXPECT_EQ(dt.hour + dt.minute + dt.second, 0);
    dt = read("30", "MI", &rc);
    EXPECT_EQ(dt.day, today.tm_mday);
    EXPECT_EQ(dt.month, today.tm_mon + 1);
    EXPECT_EQ(dt.minute, 30);
}

TEST(DatesTest, LongFormatIsCutAtTheBufferSize)
{
    std::string format;
    for (int k = 0; k < 500; k++)
        format += "YYYY";
    char buff[V_DATE_TEXT_MAX];
    datetime_t dt = sample();
    SETdate(&dt, format.c_str(), buff, 1);
    EXPECT_EQ(strlen(buff), size_t(V_DATE_TEXT_MAX - 1));
    EXPECT_EQ(std::string(buff, 8), "20082008");
}

// Runs with TZ set to one zone and restores the previous TZ afterwards.
class DatesZoneTest : public testing::Test {
protected:
    void use_zone(const char *zone)
    {
        const char *old = getenv("TZ");
        had_tz = old != nullptr;
        saved = old ? old : "";
        setenv("TZ", zone, 1);
        tzset();
    }
    void TearDown() override
    {
        if (had_tz)
            setenv("TZ", saved.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    bool had_tz = false;
    std::string saved;
};

TEST_F(DatesZoneTest, SecondsToTextAndBackInUtc)
{
    use_zone("UTC");
    char buff[V_DATE_TEXT_MAX];
    EXPECT_EQ(V_dt2str(0, "YYYY-MM-DD HH:MI:SS", buff), 0);
    EXPECT_STREQ(buff, "1970-01-01 00:00:00");
    EXPECT_EQ(V_dt2str(1700000000, "DD.MM.YY HH:MI:SS", buff), 0);
    EXPECT_STREQ(buff, "14.11.23 22:13:20");
    long dt = 0;
    EXPECT_EQ(V_str2dt("2023-11-14 22:13:20", "YYYY-MM-DD HH:MI:SS", &dt), 0);
    EXPECT_EQ(dt, 1700000000);
    EXPECT_EQ(V_str2dt("2023-11-14", "YYYY-MM-DD", &dt), 0);
    EXPECT_EQ(dt, 1699920000);
    EXPECT_EQ(V_str2dt("2024-02-29 23:59:59", "YYYY-MM-DD HH:MI:SS", &dt), 0);
    EXPECT_EQ(dt, 1709251199);
    EXPECT_EQ(V_dt2str(951782400, "Q", buff), -1);
    EXPECT_STREQ(buff, "Q");
}

TEST_F(DatesZoneTest, RoundTripsInUtc)
{
    use_zone("UTC");
    const long samples[] = {0, 86399, 951782400, 1234567890, 2147483647, 4102444800};
    for (long s : samples) {
        char buff[V_DATE_TEXT_MAX];
        V_dt2str(s, "SS MI HH DD MM YYYY", buff);
        long back = -1;
        EXPECT_EQ(V_str2dt(buff, "SS MI HH DD MM YYYY", &back), 0);
        EXPECT_EQ(back, s) << buff;
    }
}

TEST_F(DatesZoneTest, SummerTimeHourIsCorrected)
{
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
    V_dt2str(1705316400, "HH:MI", buff);
    EXPECT_STREQ(buff, "12:00");
}

}  // namespace
