// QXVCMain::config, kept apart so that linking the coordinator does not pull in
// the media operations it runs.
#include "VelmorinVideoChat/QXVCMain.h"

void QXVCMain::config() {
    configureAudioSession();
    prepareVideoDevice();
}
