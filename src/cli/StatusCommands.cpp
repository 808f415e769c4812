#include "cli/CommandLine.h"
#include "cli/Probes.h"
#include "cli/ServiceStatus.h"
#include "cli/Text.h"

#include <boost/json/serialize.hpp>

#include <algorithm>
#include <array>

namespace brindlemar::cli {

namespace {
using Rows = std::vector<std::pair<const char*, std::string>>;

std::string domainRow(const ServiceStatus::Domain& domain) {
    return domain.identifier + ", " + domain.state + (domain.since ? " since " + localTime(*domain.since) : "") +
           (domain.reason.empty() ? "" : ": " + domain.reason);
}

std::string mountRow(const ServiceStatus& status) {
    if (!status.mount) return "none";
    const ServiceStatus::Mount& mount = *status.mount;
    if (mount.mounted) return mount.path;
    return mount.path + ", not mounted" + (mount.error.empty() ? "" : ": " + mount.error);
}

std::string transferRow(const ServiceStatus::Transfer& transfer) {
    std::string row = transfer.kind + " " + transfer.path;
    if (transfer.total <= 0) return row;
    const double share = std::clamp(transfer.completed / transfer.total, 0.0, 1.0);
    return row + " " + std::to_string(static_cast<int>(100 * share)) + " %";
}

Rows statusRows(const ServiceStatus& status) {
    const auto number = [](std::uint64_t value) { return std::to_string(value); };
    Rows rows{
        {"Service", "running, pid " + number(status.pid) + ", version " + status.version},
        {"Domain", domainRow(status.domain)},
        {"Configured", status.configured ? "yes" : "no"},
        {"Signals", number(status.signalsPending) + " pending, " + number(status.signalsTotal) + " in all"},
        {"Requests", number(status.requestsWaiting) + " waiting"},
    };
    for (const auto& each : status.connections) rows.emplace_back("Connection", each.name + " (" + each.domain + ")");
    if (status.tellsMount) rows.emplace_back("Mount", mountRow(status));
    if (status.queueLength) rows.emplace_back("Queue", number(*status.queueLength) + " waiting");
    for (const auto& path : status.unsaved)
        rows.emplace_back("Open",
                          path + " is being written; the host hears of it once it is closed, or synced and left alone");
    for (const auto& each : status.transfers) rows.emplace_back("Transfer", transferRow(each));
    for (const auto& each : status.failures) rows.emplace_back("Failed", each.path + ": " + each.text);
    if (const auto cut = status.failureCount - status.failures.size(); cut > 0)
        rows.emplace_back("", "and " + number(cut) + " more");
    return rows;
}

void printStatus(Session& session) {
    Control& control = session.control();
    if (session.json) {
        const std::optional<std::string> status = control.status();
        if (!status) throwBrokenCall(control, control.error());
        return session.output.line(*status);
    }
    constexpr std::size_t width = 13;
    for (const auto& [label, value] : statusRows(statusOf(control))) {
        std::string row = label;
        row.resize(width, ' ');
        session.output.line(row + session.output.shown(value));
    }
}

constexpr std::array<const char*, 3> kVerdicts{"ok", "warning", "problem"}; // by Verdict

void runDoctor(Session& session) {
    std::size_t problems = 0;
    for (const Check& check : diagnose(look(session))) {
        std::string verdict = kVerdicts[static_cast<std::size_t>(check.verdict)];
        if (check.verdict == Verdict::problem) ++problems;
        if (session.json) {
            const boost::json::value remedy = check.remedy.empty() ? boost::json::value() : check.remedy.c_str();
            session.output.line(boost::json::serialize(boost::json::object{
                {"check", check.name}, {"result", verdict}, {"text", check.text}, {"remedy", remedy}}));
            continue;
        }
        verdict.resize(9, ' ');
        session.output.line(verdict +
                            session.output.shown(check.text + (check.remedy.empty() ? "" : " ") + check.remedy));
    }
    if (problems > 0) throw Failure(Exit::failure, counted(problems, "problem") + " found. Do what is said there.");
}
} // namespace

void addStatusCommands(CommandLine& line) {
    line.add(line.app, "status", "Show the state of the service", printStatus);
    line.add(line.app, "doctor", "Look for the usual causes of trouble", runDoctor);
}

} // namespace brindlemar::cli
