// What the simulator does wrong on request. The control socket adds rules;
// every request asks once which of them apply to it.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>

namespace sim
{

// Where a request is handled. "any" in a rule means any AFC request.
enum class Layer { usbmux, lockdown, service, afc };

enum class Corruption {
    none,
    magic,      // the reply's first eight bytes
    length,     // entire_length smaller than the header
    packetnum,  // another packet number
    huge,       // entire_length of a terabyte
    shortFixed, // this_length below the header's own size
    wrongop,    // a reply of a kind that does not answer the request
    duplicate,  // the reply twice
    reorder,    // after the next reply
    splitreply, // byte by byte at first
};

enum class FaultKind {
    fail,
    drop,
    unplug,
    stall,
    delay,
    truncate,
    corrupt,
    shortRead,
    zeroRead,
};

struct FaultRule {
    FaultKind kind = FaultKind::fail;
    std::string operation; // "any", or a request's name
    uint64_t count = 1;    // how many requests it applies to
    uint64_t after = 0;    // how many matching ones pass first
    int device = -1;       // index; -1: all
    std::string text;      // fail: status number or error string
    uint64_t number = 0;   // delay: milliseconds; truncate: bytes
    bool keepOpen = false; // truncate: the connection stays
    Corruption corruption = Corruption::none;
};

// What applies to one request.
struct FaultPlan {
    std::optional<std::string> fail;
    std::optional<uint64_t> truncate;
    uint64_t delayMs = 0;
    Corruption corruption = Corruption::none;
    bool keepOpen = false;
    bool drop = false;
    bool unplug = false;
    bool stall = false;
    bool shortRead = false;
    bool zeroRead = false;

    // True if the reply's bytes are not sent as they are.
    bool spoilsReply() const
    {
        return truncate.has_value() || corruption != Corruption::none;
    }
};

class Faults
{
  public:
    void add(FaultRule rule);
    void clear();
    // The rules left, for people: "fail FileRefRead 2 4, ...".
    size_t size() const;

    // Takes what applies to a request off the rules.
    FaultPlan plan(Layer layer, const std::string &operation, int device);

  private:
    mutable std::mutex m_mutex;
    std::atomic<size_t> m_size{0};
    std::list<FaultRule> m_rules;
};

// "magic", "huge", ...; `short` is the word for Corruption::shortFixed. None
// for an unknown word.
Corruption parseCorruption(const std::string &word);

} // namespace sim
