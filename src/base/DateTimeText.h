#pragma once

// The text of a date and time, as DateTime::toString gives it and as the
// time field of every log line shows it: year, month, day, hour, minute,
// second. One definition, so that the two can never differ.
#define ORVANE_DATE_TIME_FORMAT "%d-%02d-%02d %02d:%02d:%02d"
