"""Prints text telemetry of a machine, one line a minute: INCIDENT is the minutes at the end in which
the disk is busy, one temperature is stuck and another sensor is gone; 0 for a quiet machine."""
import sys
import time

MINUTES = 400


def values(minute, incident):
    usual = minute * 7 % 11
    is_end = minute >= MINUTES - incident
    return [20 + usual, 90 + usual if is_end else 5 + minute * 5 % 7, 40 if is_end else 41 + usual / 8,
            "nan" if is_end else usual, 1024, 600 * minute + 30 * (minute * minute % 7)]


print("20240101:00:00:00,::cpu.busy_percent,::disk.busy_percent,::case_C,::fan_RPM,"
      "::memory_bytes,::sent_bytes")
for number in range(MINUTES):
    when = time.strftime("%Y%m%d:%H:%M:%S", time.gmtime(1704067200 + 60 * number))
    print(when, *values(number, int(sys.argv[1])), sep=",")
