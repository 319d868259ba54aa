#include "QXVCMainChannelDelegate.h"

void QXVCMainChannelDelegate::channel(const QXDBaseChannelPtr& /*channel*/,
                                      const QXDBaseMessagePtr& /*message*/) {}
