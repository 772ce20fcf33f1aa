// A minimal service on sd-bus, to compare with: the same as minimal_qt.cpp.

#include "Names.h"

#include <cstdio>
#include <systemd/sd-bus.h>

namespace
{

constexpr char Object[] = "/bench/sd";
constexpr char Interface[] = "bench.Minimal";

int OnGetStatus(sd_bus_message* call, void*, sd_bus_error*)
{
    return sd_bus_reply_method_return(call, "iuuuub", 0, 0U, 0U, 0U, 0U, 0);
}

int OnMessageReceived(sd_bus_message* received, void*, sd_bus_error*)
{
    sd_bus_message* relayed = nullptr;
    if (sd_bus_message_new_signal(sd_bus_message_get_bus(received), &relayed, Object, Interface, "SmsReceived") >= 0 &&
        sd_bus_message_copy(relayed, received, 1) >= 0)
        sd_bus_send(nullptr, relayed, nullptr);
    sd_bus_message_unref(relayed);
    return 0;
}

const sd_bus_vtable methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetStatus", "", "iuuuub", OnGetStatus, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("SmsReceived", "sa{sv}", 0),
    SD_BUS_VTABLE_END,
};

}

int main()
{
    std::fputs("started\n", stderr);

    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0 || sd_bus_add_object_vtable(bus, nullptr, Object, Interface, methods, nullptr) < 0 ||
        sd_bus_match_signal(bus, nullptr, Names::GsmService, Object, Names::GsmInterface, "MessageReceived",
                            OnMessageReceived, nullptr) < 0 ||
        sd_bus_request_name(bus, "bench.Sd", 0) < 0)
        return 1;
    for (;;) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0))
            return 1;
    }
}
