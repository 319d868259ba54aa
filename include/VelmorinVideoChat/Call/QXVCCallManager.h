// QXVCCallManager: the process-wide registry of known calls by call id.
//
// A call enters when it gets its id (the start flow, or an incoming start) and
// leaves when the coordinator clears it at the end; the registry never removes
// anything by itself. Safe from any thread: a write is visible to every lookup
// that starts after it returns.
//
// A call without an id: the service gives every call a non-empty id, so the
// empty string stands for "no id". `add` of a call whose id is empty stores
// nothing, `remove` of the empty id removes nothing, and `get` of it returns
// nullptr.
#pragma once

#include <memory>
#include <string>

#include "VelmorinVideoChat/Call/QXVCBaseCall.h"

class QXVCCall;

class QXVCCallManager {
  public:
    /// Stores `call` under its id, replacing a call stored under the same id. A
    /// null call or one without an id is not stored.
    static void add(const std::shared_ptr<QXVCBaseCall>& call);
    /// Removes the call stored under `callId`, if any.
    static void remove(const std::string& callId);
    /// The call stored under `callId`, or nullptr. `Call` is the type the caller
    /// wants (QXVCCall unless told otherwise); a stored call of another type
    /// gives nullptr.
    template <typename Call = QXVCCall>
    static std::shared_ptr<Call> get(const std::string& callId) {
        return std::dynamic_pointer_cast<Call>(getBaseCall(callId));
    }
    /// The stored record, whatever its type.
    static std::shared_ptr<QXVCBaseCall> getBaseCall(const std::string& callId);
    /// How many calls are stored.
    static size_t count();

    /// For tests only: forgets every call.
    static void removeAllForTesting();
};
