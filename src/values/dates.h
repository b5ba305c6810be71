// Date texts: conversion between formatted dates and seconds since the
// epoch, driven by a small format language.
#pragma once
#include <cstdint>
#include <ctime>

int SETdate(struct tm *tmr, const char *format, char *buff, int mode);
int V_dt2str(long dt, const char *format, char *buff);
int V_str2dt(const char *text, const char *format, long *dt);
void V_date_info(uint16_t *year, uint16_t *month, uint16_t *day,
                 uint16_t *hours, uint16_t *minutes, uint16_t *seconds);
