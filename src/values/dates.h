// Date texts: conversion between formatted dates and seconds since the
// epoch, driven by a small format language.
#pragma once
#include <cstdint>
#include <ctime>

// Written date texts are cut to this size, NUL included: every output
// buffer handed to SETdate (write mode) or V_dt2str must hold this many bytes.
constexpr int V_DATE_TEXT_MAX = 256;

struct datetime_t {
    uint16_t year;   // full year, 2008
    uint8_t month;   // 1..12
    uint8_t day;     // 1..31
    uint8_t hour;    // 0..23
    uint8_t minute;
    uint8_t second;
};

// mode 1 writes *dt into buff with format; mode 0 reads buff into *dt
// (fields absent from the format keep today's date and midnight).
// Returns 0, or -1 for a field out of range or missing or an unknown
// format character; the walk goes on after such errors.
int SETdate(datetime_t *dt, const char *format, char *buff, int mode);
// Local time of seconds dt, written with format into buff (V_DATE_TEXT_MAX).
int V_dt2str(long dt, const char *format, char *buff);
// Reads text with format; stores the local time it names as seconds.
int V_str2dt(const char *text, const char *format, long *dt);
// The fields handled by the last SETdate call, each 0 or 1.
void V_date_info(uint16_t *year, uint16_t *month, uint16_t *day, uint16_t *hours, uint16_t *minutes,
                 uint16_t *seconds);

constexpr int V_TODAY_SIZE = 11;   // "yyyy-mm-dd" and its NUL
// Today's local date as "yyyy-mm-dd" into out (size bytes); false, with out
// empty when it has room, when size is below V_TODAY_SIZE or the clock fails.
bool V_today(char *out, int size);
