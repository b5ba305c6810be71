// Date formats: the token walk that writes or reads a date-time record,
// the conversions between date texts and seconds since the epoch, and today.
#include "values/dates.h"

#include <cstdio>
#include <cstring>

namespace {

enum DateField { F_SECOND, F_MINUTE, F_HOUR, F_DAY, F_MONTH, F_YEAR };

struct DateToken {
    const char *upper;
    const char *lower;
    DateField field;
    int width;   // digits written and read
};

// Tried in this order; longer year tokens first so "YYYY" is one token.
const DateToken date_tokens[] = {
    {"SS", "ss", F_SECOND, 2},   {"MI", "mi", F_MINUTE, 2},   {"HH", "hh", F_HOUR, 2},
    {"DD", "dd", F_DAY, 2},      {"JJ", "jj", F_DAY, 2},      {"MM", "mm", F_MONTH, 2},
    {"YYYY", "yyyy", F_YEAR, 4}, {"AAAA", "aaaa", F_YEAR, 4}, {"YYY", "yyy", F_YEAR, 3},
    {"AAA", "aaa", F_YEAR, 3},   {"YY", "yy", F_YEAR, 2},     {"AA", "aa", F_YEAR, 2},
    {"Y", "y", F_YEAR, 1},       {"A", "a", F_YEAR, 1},
};

const char date_separators[] = "\t !#%+-./:";

// State of the last SETdate call.
int Ok = 0;
int Year = 0, Month = 0, Day = 0, Hours = 0, Minutes = 0, Seconds = 0;
int Skip = 0;

void reset_state() {
    Ok = 0;
    Year = Month = Day = Hours = Minutes = Seconds = 0;
    Skip = 0;
}

const DateToken *match_token(const char *format) {
    for (const DateToken &t : date_tokens) {
        size_t n = strlen(t.upper);
        if (strncmp(format, t.upper, n) == 0 || strncmp(format, t.lower, n) == 0) return &t;
    }
    return nullptr;
}

bool is_separator(char c) {
    return c && strchr(date_separators, c);
}

void mark_field(DateField f) {
    switch (f) {
    case F_SECOND: Seconds = 1; break;
    case F_MINUTE: Minutes = 1; break;
    case F_HOUR: Hours = 1; break;
    case F_DAY: Day = 1; break;
    case F_MONTH: Month = 1; break;
    case F_YEAR: Year = 1; break;
    }
}

// Output cursor over a caller buffer of V_DATE_TEXT_MAX bytes; always
// NUL-terminated, cut at the limit.
struct DateOut {
    char *buff;
    int pos;
};

// Writes text at the cursor but advances only by step, so a field wider
// than its token (a five-digit year) is overwritten by what follows.
void out_put(DateOut *out, const char *text, int step) {
    int n = 0;
    for (; text[n] && out->pos + n < V_DATE_TEXT_MAX - 1; n++) out->buff[out->pos + n] = text[n];
    out->buff[out->pos + n] = '\0';
    out->pos += step < n ? step : n;
}

void write_field(const datetime_t *dt, const DateToken *t, DateOut *out) {
    char text[16];
    int value = 0;
    switch (t->field) {
    case F_SECOND: value = dt->second; break;
    case F_MINUTE: value = dt->minute; break;
    case F_HOUR: value = dt->hour; break;
    case F_DAY: value = dt->day; break;
    case F_MONTH: value = dt->month; break;
    case F_YEAR: value = dt->year; break;
    }
    if (t->field != F_YEAR) {
        snprintf(text, sizeof text, "%02d", value);
        out_put(out, text, t->width);
        return;
    }
    int n = snprintf(text, sizeof text, "%04d", value);
    if (t->width == 4) {
        out_put(out, text, 4);
        return;
    }
    // Shorter year tokens write the last digits.
    out_put(out, text + n - t->width, t->width);
}

int date_write(const datetime_t *dt, const char *format, char *buff) {
    DateOut out{buff, 0};
    buff[0] = '\0';
    while (*format) {
        if (is_separator(*format)) {
            char sep[2] = {*format, '\0'};
            out_put(&out, sep, 1);
            format++;
            continue;
        }
        const DateToken *t = match_token(format);
        if (!t) {
            char unknown[2] = {*format, '\0'};
            out_put(&out, unknown, 1);
            Ok = -1;
            format++;
            continue;
        }
        write_field(dt, t, &out);
        mark_field(t->field);
        Skip = static_cast<int>(strlen(t->upper));
        format += Skip;
    }
    return Ok;
}

void fill_today(datetime_t *dt) {
    time_t now = time(nullptr);
    struct tm tmr {};
    tzset();   // follow a TZ changed since the last conversion
    if (!localtime_r(&now, &tmr)) tmr.tm_year = 70, tmr.tm_mday = 1;
    dt->year = static_cast<uint16_t>(tmr.tm_year + 1900);
    dt->month = static_cast<uint8_t>(tmr.tm_mon + 1);
    dt->day = static_cast<uint8_t>(tmr.tm_mday);
    dt->hour = dt->minute = dt->second = 0;
}

// Stores a time field, or its floor with an error when out of range.
void store_ranged(uint8_t *field, int value, int low, int high) {
    if (value < low || value > high) {
        Ok = -1;
        value = low;
    }
    *field = static_cast<uint8_t>(value);
}

void store_year(datetime_t *dt, int width, int value) {
    // Shorter tokens replace only the last digits of the year already held.
    static const int keep[] = {1, 10, 100, 1000, 10000};
    int base = keep[width];
    if (width == 4)
        dt->year = static_cast<uint16_t>(value);
    else
        dt->year = static_cast<uint16_t>(dt->year / base * base + value);
}

// Returns how many digits of text the field took (0 for a yearless year).
int read_field(datetime_t *dt, const DateToken *t, const char *text) {
    int n = 0, value = 0;
    for (; n < t->width && text[n] >= '0' && text[n] <= '9'; n++)
        value = value * 10 + (text[n] - '0');
    if (t->field == F_YEAR) {
        if (n > 0) store_year(dt, t->width, value);
        return n;
    }
    // Without digits the field reads as 0, which only day and month reject.
    switch (t->field) {
    case F_SECOND: store_ranged(&dt->second, value, 0, 59); break;
    case F_MINUTE: store_ranged(&dt->minute, value, 0, 59); break;
    case F_HOUR: store_ranged(&dt->hour, value, 0, 23); break;
    case F_DAY: store_ranged(&dt->day, value, 1, 31); break;
    case F_MONTH: store_ranged(&dt->month, value, 1, 12); break;
    case F_YEAR: break;
    }
    return n;
}

int date_read(datetime_t *dt, const char *format, const char *text) {
    while (*format) {
        if (is_separator(*format)) {
            if (*text) text++;
            format++;
            continue;
        }
        const DateToken *t = match_token(format);
        int taken = t ? read_field(dt, t, text) : 0;
        if (!t || (t->field == F_YEAR && taken == 0)) {
            Ok = -1;
            format++;
            continue;
        }
        text += taken;
        mark_field(t->field);
        Skip = static_cast<int>(strlen(t->upper));
        format += Skip;
    }
    return Ok;
}

int read_record(datetime_t *dt, const char *format, const char *text) {
    fill_today(dt);
    reset_state();
    return date_read(dt, format ? format : "", text ? text : "");
}

}   // namespace

int SETdate(datetime_t *dt, const char *format, char *buff, int mode) {
    if (!mode) return read_record(dt, format, buff);
    reset_state();
    return date_write(dt, format ? format : "", buff);
}

int V_dt2str(long dt, const char *format, char *buff) {
    time_t t = static_cast<time_t>(dt);
    struct tm tmr {};
    tzset();
    if (!localtime_r(&t, &tmr)) {
        buff[0] = '\0';
        return -1;
    }
    // A year beyond the record's 16 bits wraps, as the record holds it.
    datetime_t rec{};
    rec.year = static_cast<uint16_t>(tmr.tm_year + 1900);
    rec.month = static_cast<uint8_t>(tmr.tm_mon + 1);
    rec.day = static_cast<uint8_t>(tmr.tm_mday);
    rec.hour = static_cast<uint8_t>(tmr.tm_hour);
    rec.minute = static_cast<uint8_t>(tmr.tm_min);
    rec.second = static_cast<uint8_t>(tmr.tm_sec);
    return SETdate(&rec, format, buff, 1);
}

int V_str2dt(const char *text, const char *format, long *dt) {
    datetime_t rec{};
    int rc = read_record(&rec, format, text);
    struct tm tmr {};
    tmr.tm_year = rec.year - 1900;
    tmr.tm_mon = rec.month - 1;
    tmr.tm_mday = rec.day;
    tmr.tm_hour = rec.hour;
    tmr.tm_min = rec.minute;
    tmr.tm_sec = rec.second;
    tmr.tm_isdst = 0;
    time_t t = mktime(&tmr);
    // Read as standard time: in summer the clock shows one hour more, so
    // the hour comes back different and the hour is taken off again.
    struct tm back {};
    if (localtime_r(&t, &back) && back.tm_hour != rec.hour) t -= 3600;
    *dt = static_cast<long>(t);
    return rc;
}

void V_date_info(uint16_t *year, uint16_t *month, uint16_t *day, uint16_t *hours, uint16_t *minutes,
                 uint16_t *seconds) {
    *year = static_cast<uint16_t>(Year);
    *month = static_cast<uint16_t>(Month);
    *day = static_cast<uint16_t>(Day);
    *hours = static_cast<uint16_t>(Hours);
    *minutes = static_cast<uint16_t>(Minutes);
    *seconds = static_cast<uint16_t>(Seconds);
}

bool V_today(char *out, int size) {
    if (!out || size < 1) return false;
    out[0] = 0;
    if (size < V_TODAY_SIZE) return false;
    time_t now = time(nullptr);
    struct tm tm;
    if (!localtime_r(&now, &tm)) return false;
    int year = tm.tm_year + 1900, month = tm.tm_mon + 1, day = tm.tm_mday;
    if (year < 0 || year > 9999) year = 9999;   // keeps the text 10 bytes
    snprintf(out, V_TODAY_SIZE, "%04u-%02u-%02u", (unsigned)year % 10000u, (unsigned)month % 100u,
             (unsigned)day % 100u);
    return true;
}
