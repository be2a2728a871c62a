// Tells the service manager that started this process what it does, by the datagrams that
// sd_notify(3) describes. Nothing happens where no manager asked for that.
#ifndef VESK_CLI_PROCESS_SERVICE_MANAGER_HPP
#define VESK_CLI_PROCESS_SERVICE_MANAGER_HPP

#include <optional>
#include <string>
#include <string_view>

namespace cli
{

class service_manager
{
public:
    // Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and takes them out of the environment,
    // so that no program that is started from here speaks for this one.
    service_manager();
    service_manager(const service_manager &) = delete;
    service_manager &operator=(const service_manager &) = delete;
    ~service_manager();

    // @p status: one line for people.
    void ready(std::string_view status);
    void reloading(double monotonic);
    void stopping();
    void status(std::string_view status);

    // To be called within seconds_to_alive(): tells that the process is not stuck.
    void alive(double monotonic);
    // Nothing where nobody watches.
    std::optional<double> seconds_to_alive(double monotonic) const;

private:
    void send(const std::string &text) const;

    std::string address_; // empty without a manager
    int socket_ = -1;
    std::optional<double> period_; // seconds between two signs of life
    double told_ = 0;
};

} // namespace cli

#endif
