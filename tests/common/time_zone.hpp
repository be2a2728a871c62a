// Sets the time zone for one test.
#ifndef VESK_TESTS_COMMON_TIME_ZONE_HPP
#define VESK_TESTS_COMMON_TIME_ZONE_HPP

#include <stdlib.h>
#include <string>
#include <time.h>

class time_zone
{
public:
    explicit time_zone(const char *zone)
    {
        const char *now = getenv("TZ");
        was_set_ = now != nullptr;
        before_ = was_set_ ? now : "";
        setenv("TZ", zone, 1);
        tzset();
    }
    time_zone(const time_zone &) = delete;
    time_zone &operator=(const time_zone &) = delete;
    ~time_zone()
    {
        was_set_ ? setenv("TZ", before_.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    bool was_set_;
    std::string before_;
};

#endif
