// Writes what a call receives to a WAV file (16-bit mono, 48 kHz) through
// libsndfile. The header is brought up to date after every block, so the file
// is complete whenever the call ends, even if the process is killed.
#pragma once

#include <memory>
#include <string>

typedef struct _GstElement GstElement;

/// Makes `appsink` (receiving 16-bit mono 48 kHz audio) write to `path`,
/// replacing the file. False, with the reason in `error`, when the file cannot
/// be created; the appsink then discards what it gets.
bool RTCGstRecordAudio(GstElement* appsink, const std::string& path, std::string& error);
