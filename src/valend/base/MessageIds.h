// The MESSAGE_ID of each kind of event in the log, as in sd-id128(3): "journalctl MESSAGE_ID=..." finds
// its lines whatever their text. docs/operating.md lists them. An id never changes its meaning.
#pragma once

namespace Valend::MessageIds {

inline constexpr char const * started = "accad39d51094e409be89c48913e0c14";
inline constexpr char const * stopping = "d888766b360f4122a06493acb53571ba";
inline constexpr char const * shutdownDone = "2bab23cfaf6c45a7bd3fdb85c96e6f33";
inline constexpr char const * shutdownAborted = "b69c81ca722e4130b1e47af1a243df6f";
inline constexpr char const * shutdownFailed = "021f9b52674442c695a64ae0f25a9bf4";
inline constexpr char const * shutdownExpired = "85b07721532f42d5a331818e3d5f898a";
inline constexpr char const * shutdownPending = "556cf31567eb4c79b7ce57893d3502ba";
inline constexpr char const * setDownOutside = "11ac351d48a8405a8d0da5de9d2997db";
inline constexpr char const * goodbye = "74607ad00b6f48c6a36a690033898422";
inline constexpr char const * conditionRaised = "f60d500dafe64aa7927d1d30389c2291";
inline constexpr char const * conditionCleared = "3e7eff98c47d4dfe8ea1e31512052409";

} // namespace Valend::MessageIds
