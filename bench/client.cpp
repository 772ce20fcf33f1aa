// The client that measures: it calls methods, receives signals and takes the time, in the same way for every program.
// Prints nanoseconds, one measurement on each line.

#include "Names.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace
{

constexpr int InFlight = 32; ///< pending calls while flooding
constexpr int64_t LimitNs = 60'000'000'000;
constexpr int64_t RepeatNs = 200'000'000; ///< interval at which a signal without effect is repeated

int64_t Now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000LL + now.tv_nsec;
}

[[noreturn]] void Fail(const char* what, int error = errno)
{
    std::fprintf(stderr, "bench_client: %s: %s\n", what, std::strerror(std::abs(error)));
    std::exit(1);
}

int Checked(const char* what, int result)
{
    if (result < 0)
        Fail(what, result);
    return result;
}

sd_bus* Connect()
{
    sd_bus* bus = nullptr;
    Checked("session bus", sd_bus_open_user(&bus));
    return bus;
}

/// Handles all messages that have arrived.
void Drain(sd_bus* bus)
{
    while (Checked("bus", sd_bus_process(bus, nullptr)) > 0) {
    }
}

/// Handles messages until the flag is set or the time is up. @return the flag.
bool RunUntil(const bool& flag, int64_t limitNs, std::initializer_list<sd_bus*> buses)
{
    const int64_t end = Now() + limitNs;
    for (;;) {
        pollfd descriptors[2] = {};
        nfds_t count = 0;
        for (sd_bus* bus : buses) {
            Drain(bus);
            descriptors[count++] = {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0};
        }
        const int64_t left = end - Now();
        if (flag || left <= 0)
            return flag;
        poll(descriptors, count, static_cast<int>(left / 1'000'000) + 1);
    }
}

int SetFlag(sd_bus_message*, void* flag, sd_bus_error*)
{
    *static_cast<bool*>(flag) = true;
    return 0;
}

/// start NAME PROGRAM: measures the time from exec to the first line on standard error, and to the name on the bus.
int Start(const char* name, char** program)
{
    sd_bus* bus = Connect();
    bool onBus = false;
    const std::string rule =
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + std::string(name) + '\'';
    Checked("match", sd_bus_add_match(bus, nullptr, rule.c_str(), SetFlag, &onBus));

    int ends[2];
    if (pipe(ends) < 0)
        Fail("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);

    const int64_t begin = Now();
    int64_t firstLine = 0;
    int64_t named = 0;
    pid_t child = 0;
    if (const int error = posix_spawn(&child, program[0], &actions, nullptr, program, environ); error != 0)
        Fail(program[0], error);
    while (named == 0 || firstLine == 0) {
        pollfd descriptors[2] = {{ends[0], POLLIN, 0}, {sd_bus_get_fd(bus), POLLIN, 0}};
        if (poll(descriptors, 2, LimitNs / 1'000'000) <= 0)
            Fail("the program does not start");
        char text[4096];
        if ((descriptors[0].revents & POLLIN) && read(ends[0], text, sizeof text) > 0 && firstLine == 0)
            firstLine = Now();
        if (descriptors[1].revents & POLLIN)
            Drain(bus);
        if (onBus && named == 0)
            named = Now();
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::printf("%lld %lld\n", static_cast<long long>(firstLine - begin), static_cast<long long>(named - begin));
    return 0;
}

sd_bus_message* MakeCall(sd_bus* bus, char** target, char** texts)
{
    sd_bus_message* call = nullptr;
    Checked("call", sd_bus_message_new_method_call(bus, &call, target[0], target[1], target[2], target[3]));
    for (; *texts; ++texts)
        Checked("argument", sd_bus_message_append(call, "s", *texts));
    return call;
}

/// call COUNT NAME PATH INTERFACE METHOD [TEXT...]: measures each round trip.
int Call(int count, char** target, char** texts)
{
    sd_bus* bus = Connect();
    for (int i = 0; i < count; ++i) {
        sd_bus_message* call = MakeCall(bus, target, texts);
        sd_bus_message* reply = nullptr;
        sd_bus_error error = SD_BUS_ERROR_NULL;
        const int64_t begin = Now();
        const int result = sd_bus_call(bus, call, 0, &error, &reply);
        const int64_t end = Now();
        Checked(error.message ? error.message : "call", result);
        std::printf("%lld\n", static_cast<long long>(end - begin));
        sd_bus_message_unref(call);
        sd_bus_message_unref(reply);
    }
    return 0;
}

int CountAnswer(sd_bus_message* reply, void* waiting, sd_bus_error*)
{
    if (sd_bus_message_is_method_error(reply, nullptr))
        Fail(sd_bus_message_get_error(reply)->message, 0);
    --*static_cast<int*>(waiting);
    return 0;
}

/// flood COUNT NAME PATH INTERFACE METHOD [TEXT...]: measures the time of one call while many are pending.
int Flood(int count, char** target, char** texts)
{
    sd_bus* bus = Connect();
    int waiting = 0;
    const int64_t begin = Now();
    for (int sent = 0; sent < count || waiting > 0;) {
        for (; sent < count && waiting < InFlight; ++sent, ++waiting) {
            sd_bus_message* call = MakeCall(bus, target, texts);
            Checked("call", sd_bus_call_async(bus, nullptr, call, CountAnswer, &waiting, 0));
            sd_bus_message_unref(call);
        }
        Drain(bus);
        if (waiting == InFlight || (sent == count && waiting > 0))
            Checked("bus", sd_bus_wait(bus, UINT64_MAX));
        Drain(bus);
    }
    std::printf("%lld\n", static_cast<long long>((Now() - begin) / count));
    return 0;
}

/// send COUNT NAME PATH INTERFACE METHOD [TEXT...]: calls that want no answer, all handed to the bus.
int Send(int count, char** target, char** texts)
{
    sd_bus* bus = Connect();
    for (int sent = 0; sent < count; ++sent) {
        sd_bus_message* call = MakeCall(bus, target, texts);
        Checked("message", sd_bus_message_set_expect_reply(call, 0));
        Checked("call", sd_bus_send(bus, call, nullptr));
        sd_bus_message_unref(call);
        if (sent % InFlight == 0)
            Checked("bus", sd_bus_flush(bus));
    }
    Checked("bus", sd_bus_flush(bus));
    return 0;
}

int AnswerSuccess(sd_bus_message* call, void*, sd_bus_error*)
{
    uint8_t type = 0;
    sd_bus_message_get_type(call, &type);
    return type == SD_BUS_MESSAGE_METHOD_CALL ? sd_bus_reply_method_return(call, "i", 0) : 0;
}

/// relay COUNT FROM PATH INTERFACE SIGNAL: measures the time from the GSM daemon's MessageReceived, sent from the
/// object FROM, to the signal of the relaying service.
int Relay(int count, const char* from, char** relayed)
{
    sd_bus* daemon = Connect();
    Checked("filter", sd_bus_add_filter(daemon, nullptr, AnswerSuccess, nullptr));
    Checked("name", sd_bus_request_name(daemon, Names::GsmService, 0));
    sd_bus* listener = Connect();
    bool received = false;
    Checked("match",
            sd_bus_match_signal(listener, nullptr, nullptr, relayed[0], relayed[1], relayed[2], SetFlag, &received));

    for (int i = -1; i < count; ++i) { // The first signal is repeated until the service has attached to the daemon.
        const int64_t limit = Now() + LimitNs;
        int64_t begin = 0;
        do {
            received = false;
            begin = Now();
            if (begin > limit)
                Fail("the signal is not received", 0);
            Checked("signal", sd_bus_emit_signal(daemon, from, Names::GsmInterface, "MessageReceived", "sa{sv}",
                                                 "A message", 1, "Sender", "s", "+4912345"));
        } while (!RunUntil(received, i < 0 ? RepeatNs : LimitNs, {daemon, listener}));
        const int64_t end = Now();
        if (i >= 0)
            std::printf("%lld\n", static_cast<long long>(end - begin));
        else
            RunUntil(false, RepeatNs, {daemon, listener}); // Receive the repetitions too.
    }
    return 0;
}

}

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "start" && argc >= 4)
        return Start(argv[2], argv + 3);
    if (mode == "call" && argc >= 7)
        return Call(std::atoi(argv[2]), argv + 3, argv + 7);
    if (mode == "flood" && argc >= 7)
        return Flood(std::atoi(argv[2]), argv + 3, argv + 7);
    if (mode == "send" && argc >= 7)
        return Send(std::atoi(argv[2]), argv + 3, argv + 7);
    if (mode == "relay" && argc == 7)
        return Relay(std::atoi(argv[2]), argv[3], argv + 4);
    std::fputs("See the comments of each mode: start, call, flood, send, relay\n", stderr);
    return 2;
}
