// The call's state machine: the only place where a call's `state` changes.

#include <optional>

#include "VelmorinVideoChat/Call/QXVCCall.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

using Trigger = QXVCCall::StateTrigger;

struct Transition {
    Trigger trigger;
    /// The state the call must be in; none: any state.
    std::optional<QXVCState> from;
    QXVCState to;
};

// Every transition there is. A call is made in state None; the factories give
// it its first state. Opened and Dropped follow the media path from any state
// (a drop is reported even before the first opening), and a pushed end closes a
// registered call whatever it was doing. Ending a call changes nothing here.
constexpr Transition kTransitions[] = {
    {Trigger::CallerCallCreated, QXVCStateNone, QXVCStateNone},
    {Trigger::StartFlowStarted, QXVCStateNone, QXVCStateConnecting},
    {Trigger::IncomingStart, QXVCStateNone, QXVCStateConnecting},
    {Trigger::Accepted, QXVCStateConnecting, QXVCStateConnecting},
    {Trigger::MediaOpened, std::nullopt, QXVCStateOpened},
    {Trigger::MediaDisconnected, std::nullopt, QXVCStateDropped},
    {Trigger::EndRecordCreated, QXVCStateNone, QXVCStateClosed},
    {Trigger::PushedEnd, std::nullopt, QXVCStateClosed},
};

}  // namespace

bool QXVCCall::changeState(StateTrigger trigger) {
    std::lock_guard lock(stateMutex_);
    const QXVCState current = state();
    for (const Transition& transition : kTransitions) {
        if (transition.trigger == trigger && (!transition.from || *transition.from == current)) {
            setState(transition.to);
            return true;
        }
    }
    QXVCMain::logWithLevel(QXVCInternalLogLevelDebug,
                           "[QXVC] No state change from %d for trigger %d.",
                           static_cast<int>(current), static_cast<int>(trigger));
    return false;
}
