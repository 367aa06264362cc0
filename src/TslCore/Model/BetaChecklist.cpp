#include "TslCore/Model/BetaChecklist.h"

namespace tsl {

namespace BetaChecklist {
namespace {

std::vector<Step> ofScope(Scope scope) {
    std::vector<Step> out;
    for (const Step& s : steps)
        if (s.scope == scope) out.push_back(s);
    return out;
}

const BetaAnswer* answer(std::string_view id, const std::optional<std::string>& app,
                         const BetaChecklistRecord& record) {
    const BetaChecklistRecord::Answers* answers = &record.global;
    if (app) {
        auto it = record.apps.find(*app);
        if (it == record.apps.end()) return nullptr;
        answers = &it->second;
    }
    auto it = answers->find(std::string(id));
    return it == answers->end() ? nullptr : &it->second;
}

std::optional<bool> trueOrAbsent(bool seen) { return seen ? std::optional(true) : std::nullopt; }

}  // namespace

std::string_view toString(Verdict verdict) {
    switch (verdict) {
        case Verdict::pass: return "pass";
        case Verdict::fail: return "fail";
        case Verdict::incomplete: return "incomplete";
    }
    return "";
}

std::vector<Step> setupSteps() { return ofScope(Scope::setup); }
std::vector<Step> appSteps() { return ofScope(Scope::perApp); }

std::optional<Step> step(std::string_view id) {
    for (const Step& s : steps)
        if (s.id == id) return s;
    return std::nullopt;
}

std::optional<bool> autoStatus(const Step& step, const std::optional<std::string>& app, const Facts& facts) {
    const std::string_view id = step.id;
    // Only the host check can say no; everything else is seen or not yet.
    if (id == "mac") return facts.hostOK;
    if (id == "download") return trueOrAbsent(facts.restoreImageDownloaded || facts.vmInstalled);
    if (id == "install") return trueOrAbsent(facts.vmInstalled);
    if (id == "firstStart") return trueOrAbsent(facts.agentSaidHello);
    if (id == "permissions") return trueOrAbsent(facts.setupCompleted);
    if (id == "keepApp") return trueOrAbsent(facts.keptApps >= 1);
    if (!app) return std::nullopt;
    if (id == "open") return trueOrAbsent(facts.appsOpened.contains(*app));
    if (id == "sleepWake") return trueOrAbsent(facts.appsResumed.contains(*app));
    if (id == "tenMinutes") {
        auto it = facts.appUseSeconds.find(*app);
        return trueOrAbsent(it != facts.appUseSeconds.end() && it->second >= 600);
    }
    return std::nullopt;
}

Status status(const Step& step, const std::optional<std::string>& app, const Facts& facts,
              const BetaChecklistRecord& record) {
    if (const BetaAnswer* given = answer(step.id, app, record)) return Status::answered(given->value);
    if (!step.automatic) return Status::waiting();
    const auto seen = autoStatus(step, app, facts);
    if (!seen) return Status::waiting();
    return *seen ? Status::recorded() : Status::failed();
}

bool needsAnswer(const Step& step, const std::optional<std::string>& app, const Facts&,
                 const BetaChecklistRecord& record) {
    return step.confirm && !answer(step.id, app, record);
}

Verdict verdict(const std::string& app, const Facts& facts, const BetaChecklistRecord& record) {
    using V = BetaAnswer::Value;
    const auto is = [&](std::string_view id, V value) {
        const BetaAnswer* a = answer(id, app, record);
        return a && a->value == value;
    };
    for (std::string_view id : {"typing", "save", "menus", "activation", "tenMinutes"})
        if (is(id, V::problem)) return Verdict::fail;
    // The tester's own word on ten minutes counts, not the measured time.
    const bool pass = facts.appsOpened.contains(app) && is("typing", V::works) && is("save", V::works) &&
                      is("menus", V::works) && (is("activation", V::works) || is("activation", V::notNeeded)) &&
                      is("tenMinutes", V::works);
    return pass ? Verdict::pass : Verdict::incomplete;
}

Progress progress(const std::vector<std::string>& apps, const Facts& facts, const BetaChecklistRecord& record) {
    const auto finished = [&](const Step& s, const std::optional<std::string>& app) {
        if (answer(s.id, app, record)) return true;
        return s.automatic && !s.confirm && autoStatus(s, app, facts) == true;
    };
    Progress p;
    for (const Step& s : steps) {
        if (s.scope == Scope::setup) {
            ++p.total;
            if (finished(s, std::nullopt)) ++p.done;
            continue;
        }
        for (const std::string& app : apps) {
            ++p.total;
            if (finished(s, app)) ++p.done;
        }
    }
    return p;
}

}  // namespace BetaChecklist
}  // namespace tsl
