// The phone's media engine: GStreamer, set up from the phone's flags, and the
// engine's side of the phone (frame tags, the window, the device list).
#pragma once

#include <memory>

#include "PhoneController.h"
#include "PhoneEventLog.h"
#include "PhoneOptions.h"
#include "RTCGstPlatform.h"

/// The engine, or nullptr when GStreamer lacks what calls need. Replaced
/// media are reported on `log` as WARN lines (and on stderr).
std::shared_ptr<RTCGstPlatform> makePhoneEngine(const PhoneOptions& options,
                                                const std::shared_ptr<PhoneEventLog>& log);

/// The controller's media hooks on `engine`.
PhoneMedia makePhoneMedia(const std::shared_ptr<RTCGstPlatform>& engine,
                          const std::shared_ptr<PhoneEventLog>& log);
