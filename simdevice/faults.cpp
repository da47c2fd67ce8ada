#include "simdevice/faults.h"

namespace sim
{

namespace
{

struct CorruptionName {
    const char *word;
    Corruption corruption;
};

constexpr CorruptionName kCorruptionNames[] = {
    {"magic", Corruption::magic},           {"length", Corruption::length},
    {"packetnum", Corruption::packetnum},   {"huge", Corruption::huge},
    {"short", Corruption::shortFixed},      {"wrongop", Corruption::wrongop},
    {"duplicate", Corruption::duplicate},   {"reorder", Corruption::reorder},
    {"splitreply", Corruption::splitreply},
};

bool matches(const FaultRule &rule, Layer layer, const std::string &operation,
             int device)
{
    if (rule.device >= 0 && rule.device != device) {
        return false;
    }
    return rule.operation == "any" ? layer == Layer::afc
                                   : rule.operation == operation;
}

void apply(const FaultRule &rule, FaultPlan &plan)
{
    switch (rule.kind) {
    case FaultKind::fail:
        plan.fail = rule.text;
        break;
    case FaultKind::drop:
        plan.drop = true;
        break;
    case FaultKind::unplug:
        plan.unplug = true;
        break;
    case FaultKind::stall:
        plan.stall = true;
        break;
    case FaultKind::delay:
        plan.delayMs += rule.number;
        break;
    case FaultKind::truncate:
        plan.truncate = rule.number;
        plan.keepOpen = rule.keepOpen;
        break;
    case FaultKind::corrupt:
        plan.corruption = rule.corruption;
        break;
    case FaultKind::shortRead:
        plan.shortRead = true;
        break;
    case FaultKind::zeroRead:
        plan.zeroRead = true;
        break;
    }
}

} // namespace

void Faults::add(FaultRule rule)
{
    const std::lock_guard lock(m_mutex);
    m_rules.push_back(std::move(rule));
    m_size = m_rules.size();
}

void Faults::clear()
{
    const std::lock_guard lock(m_mutex);
    m_rules.clear();
    m_size = 0;
}

size_t Faults::size() const
{
    return m_size;
}

FaultPlan Faults::plan(Layer layer, const std::string &operation, int device)
{
    FaultPlan plan;
    if (m_size == 0) {
        return plan;
    }
    const std::lock_guard lock(m_mutex);
    for (auto rule = m_rules.begin(); rule != m_rules.end();) {
        if (matches(*rule, layer, operation, device)) {
            if (rule->after > 0) {
                rule->after--;
            } else {
                apply(*rule, plan);
                rule->count--;
            }
        }
        rule = rule->count == 0 ? m_rules.erase(rule) : std::next(rule);
    }
    m_size = m_rules.size();
    return plan;
}

Corruption parseCorruption(const std::string &word)
{
    for (const CorruptionName &entry : kCorruptionNames) {
        if (word == entry.word) {
            return entry.corruption;
        }
    }
    return Corruption::none;
}

} // namespace sim
