// SPDX-License-Identifier: LGPL-2.1-or-later
#include "JsonReport.h"

#include "Text.h"
#include "UsbCheck.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace check {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1;

Json findingsOf(const Findings& findings, bool isQuiet)
{
    Json list = Json::array();
    for (const Finding& finding : findings) {
        if (isQuiet && finding.severity == Severity::Note) {
            continue;
        }
        list.push_back({{"file", printable(finding.place)},
                        {"line", finding.line > 0 ? Json(finding.line) : Json()},
                        {"severity", nameOf(finding.severity)},
                        {"code", finding.code},
                        {"message", finding.message},
                        {"advice", finding.advice}});
    }
    return list;
}

Json configurationsOf(const std::vector<ConfFile>& files)
{
    Json list = Json::array();
    for (const ConfFile& file : files) {
        Json models = Json::array();
        for (const ConfModel& model : file.models) {
            models.push_back({{"line", model.line},
                              {"vendor", hexId(model.vendor)},
                              {"product", hexId(model.product)},
                              {"features", printable(model.featureFile)},
                              {"name", printable(model.name)},
                              {"counts", model.counts}});
        }
        list.push_back({{"file", printable(file.path)},
                        {"read", file.isRead},
                        {"models", models},
                        {"skipped", file.skipped}});
    }
    return list;
}

Json valueOf(Section section, const Value& value)
{
    if (section == Section::Integers) {
        return value.integer;
    }
    if (section == Section::Doubles) {
        return std::isfinite(value.number) ? Json(value.number) : Json();
    }
    return printable(value.text);
}

Json featuresOf(const std::vector<FeatureFile>& files)
{
    Json list = Json::array();
    for (const FeatureFile& file : files) {
        Json values = Json::array();
        for (const auto& [place, value] : file.values()) {
            values.push_back({{"line", value.line},
                              {"section", headerOf(place.first)},
                              {"key", printable(place.second)},
                              {"value", valueOf(place.first, value)}});
        }
        list.push_back({{"file", printable(file.path())},
                        {"read", file.isRead()},
                        {"values", values},
                        {"skipped", file.skipped()}});
    }
    return list;
}

Json holdersOf(const std::vector<Holder>& holders)
{
    Json list = Json::array();
    for (const Holder& holder : holders) {
        list.push_back({{"process", holder.pid > 0 ? Json(holder.pid) : Json()},
                        {"program", printable(holder.program)},
                        {"user", printable(holder.user)}});
    }
    return list;
}

Json devicesOf(const Session& session)
{
    if (!session.devices) {
        return nullptr;
    }
    Json list = Json::array();
    for (const UsbDevice& device : *session.devices) {
        const bool isNamed = device.hasIds && findModel(session.configurations, device.vendor,
                                                        device.product) != nullptr;
        list.push_back({{"bus", device.bus},
                        {"device", device.file},
                        {"file", printable(device.path)},
                        {"vendor", device.hasIds ? Json(hexId(device.vendor)) : Json()},
                        {"product", device.hasIds ? Json(hexId(device.product)) : Json()},
                        {"name", printable(device.name())},
                        {"configured", isNamed},
                        {"usable", device.isUsable},
                        {"writable", device.isWritable},
                        {"driver", printable(device.driver)},
                        {"holders", holdersOf(device.holders)},
                        {"ready", isReady(device, session.configurations)}});
    }
    return list;
}

Json portOf(const std::optional<PortState>& port)
{
    if (!port) {
        return nullptr;
    }
    return {{"number", 5353},
            {"usable", port->canBind},
            {"holders", holdersOf(port->holders)},
            {"route", port->hasRoute}};
}

Json discoveredOf(const Session& session)
{
    if (!session.search || !session.search->isDone) {
        return nullptr;
    }
    Json list = Json::array();
    for (const Answer& answer : session.search->answers) {
        const bool isNamed =
            findModel(session.configurations, answer.vendor, answer.product) != nullptr;
        const Suggestion add =
            suggestLine(session.configurations, answer.vendor, answer.product, answer.name);
        list.push_back({{"name", printable(answer.name)},
                        {"maker", printable(answer.maker)},
                        {"address", printable(answer.ip)},
                        {"mac", printable(answer.mac)},
                        {"vendor", hexId(answer.vendor)},
                        {"product", hexId(answer.product)},
                        {"configured", isNamed},
                        {"line", isNamed ? Json() : Json(add.line)}});
    }
    return list;
}

Json environmentOf(const Environment& environment)
{
    Json object = Json::object();
    for (const std::string& name : environmentNames()) {
        const auto found = environment.find(name);
        object[name] = found != environment.end() ? Json(printable(found->second)) : Json();
    }
    return object;
}

}  // namespace

std::string jsonReport(const Session& session, bool isQuiet)
{
    const Json report = {{"program", "scanlib-check"},
                         {"version", SCANLIB_VERSION},
                         {"format", kFormat},
                         {"status", session.status()},
                         {"errors", countOf(session.findings, Severity::Error)},
                         {"warnings", countOf(session.findings, Severity::Warning)},
                         {"findings", findingsOf(session.findings, isQuiet)},
                         {"configurations", configurationsOf(session.configurations)},
                         {"features", featuresOf(session.features)},
                         {"devices", devicesOf(session)},
                         {"port", portOf(session.port)},
                         {"discovered", discoveredOf(session)},
                         {"environment", environmentOf(session.environment)}};
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace check
