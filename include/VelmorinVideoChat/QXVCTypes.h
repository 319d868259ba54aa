// Public enumerations of VelmorinVideoChat and its error domain.
//
// The numeric values appear on the wire and in the public interface: they are
// fixed. Enumerators live at global scope, as in the rest of the library.
#pragma once

#include <cstdint>

/// The domain of every error the library reports.
extern const char* const NSErrorDomainVelmorinVideoChat;  // "Velmorin VideoChat Error"

/// State of a call.
enum QXVCState : long {
    QXVCStateNone = 0,
    QXVCStateConnecting = 1,
    QXVCStateOpened = 2,
    QXVCStateDropped = 3,
    QXVCStateClosed = 4,
};

/// Why a call ended. `NSStringFromEndType` gives the wire word.
enum QXVCEndType : unsigned long {
    QXVCEndTypeNone = 0,
    QXVCEndTypeUnknown = 1,
    QXVCEndTypeEnd = 2,
    QXVCEndTypeCancel = 3,
    QXVCEndTypeDecline = 4,
    QXVCEndTypeTimeout = 5,
};

/// Which side of the call this device is.
enum QXVCRole : long {
    QXVCRoleNone = 0,
    QXVCRoleCaller = 1,
    QXVCRoleCallee = 2,
};

/// Log level set by the application.
enum QXVCLogLevel : long {
    QXVCLogLevelNone = 0,
    QXVCLogLevelError = 1,
    QXVCLogLevelWarning = 2,
    QXVCLogLevelInfo = 3,
};

/// How a call came about.
enum QXVCOperationMode : long {
    QXVCOperationModeNone = 0,
    QXVCOperationModeAutoAcceptSimultaneousStartCall = 1,
};

/// Which camera a call uses.
enum QXVCCameraPosition : unsigned long {
    QXVCCameraPositionUnspecified = 0,
    QXVCCameraPositionFront = 1,
    QXVCCameraPositionBack = 2,
};

/// Error codes of the library. 900600 is the chat service's code for a refused
/// second start in a channel; the library never raises it itself.
enum QXVCErrorCode : unsigned long {
    QXVCErrorUnknown = 820000,
    QXVCErrorVelmorinConnectionRequired = 820100,
    QXVCErrorVelmorinRequired = 820130,
    QXVCErrorInvalidAction = 820200,
    QXVCErrorAcceptingFail = 820300,
    QXVCErrorInvalidParameter = 820400,
    QXVCErrorUnsuitableChannel = 820401,
    QXVCErrorAlreadyCameraSwitching = 820510,
    QXVCErrorNotSupportedPlatform = 820620,
    QXVCErrorAlreadyCallGoingOn = 900600,
};
