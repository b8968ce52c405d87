#include "RigReport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace RigReport {

namespace {

const char* severityName(RagdollCheck::Severity severity)
{
    return severity == RagdollCheck::Severity::Error ? "error" : "warning";
}

std::string dropTestLine(const RagdollCheck::DropTest& test)
{
    if (!test.finite)
        return "drop test: a body went non-finite";
    std::string line = "drop test: ";
    line += test.secondsToRest < 0.0 ? std::string("not at rest at the end")
                                     : "at rest after " + fixed(test.secondsToRest, 2) + " s";
    line += "; worst limit violation " + fixed(test.worstLimitDegrees, 1) + " deg";
    if (!test.worstLimitConstraint.empty())
        line += " (" + test.worstLimitConstraint + ")";
    line += "; worst joint separation " + fixed(test.worstSeparation * 1000.0, 1) + " mm";
    if (!test.worstSeparationConstraint.empty())
        line += " (" + test.worstSeparationConstraint + ")";
    return line;
}

QJsonObject dropTestObject(const RagdollCheck::DropTest& test)
{
    QJsonObject object;
    object["finite"] = test.finite;
    object["secondsToRest"] = test.secondsToRest < 0.0 ? QJsonValue() : QJsonValue(test.secondsToRest);
    object["worstLimitDegrees"] = test.worstLimitDegrees;
    object["worstLimitConstraint"] = QString::fromStdString(test.worstLimitConstraint);
    object["worstSeparation"] = test.worstSeparation;
    object["worstSeparationConstraint"] = QString::fromStdString(test.worstSeparationConstraint);
    return object;
}

} // namespace

std::string fixed(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return text;
}

std::string counted(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string text(const std::vector<RagdollCheck::Finding>& findings, const RagdollCheck::DropTest* dropTest)
{
    size_t errors = 0;
    for (const RagdollCheck::Finding& finding : findings)
        errors += finding.severity == RagdollCheck::Severity::Error;
    std::string out = counted(errors, "error", "errors") + ", "
        + counted(findings.size() - errors, "warning", "warnings") + "\n";
    for (const RagdollCheck::Finding& finding : findings)
        out += std::string("  ") + severityName(finding.severity) + ": " + finding.message + "\n";
    if (dropTest)
        out += "  " + dropTestLine(*dropTest) + "\n";
    return out;
}

std::string json(const std::string& file, const std::vector<RagdollCheck::Finding>& findings,
                 const RagdollCheck::DropTest* dropTest)
{
    QJsonArray list;
    int errors = 0;
    for (const RagdollCheck::Finding& finding : findings) {
        QJsonArray nodes;
        for (const std::string& node : finding.nodes)
            nodes.append(QString::fromStdString(node));
        QJsonObject entry;
        entry["severity"] = severityName(finding.severity);
        entry["kind"] = QString::fromStdString(finding.kind);
        entry["nodes"] = nodes;
        entry["message"] = QString::fromStdString(finding.message);
        list.append(entry);
        errors += finding.severity == RagdollCheck::Severity::Error;
    }
    QJsonObject object;
    object["file"] = QString::fromStdString(file);
    object["errors"] = errors;
    object["warnings"] = int(findings.size()) - errors;
    object["findings"] = list;
    object["dropTest"] = dropTest ? QJsonValue(dropTestObject(*dropTest)) : QJsonValue();
    return QJsonDocument(object).toJson(QJsonDocument::Indented).toStdString();
}

std::string failure(const std::string& file, const std::string& reason)
{
    QJsonObject object;
    object["file"] = QString::fromStdString(file);
    object["error"] = QString::fromStdString(reason);
    return QJsonDocument(object).toJson(QJsonDocument::Indented).toStdString();
}

std::string jsonArray(const std::vector<std::string>& objects)
{
    QJsonArray array;
    for (const std::string& object : objects)
        array.append(QJsonDocument::fromJson(QByteArray::fromStdString(object)).object());
    return QJsonDocument(array).toJson(QJsonDocument::Indented).toStdString();
}

} // namespace RigReport
