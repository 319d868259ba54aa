// Umbrella header of VelmorinVideoChat.
#pragma once

#include "VelmorinVideoChat/QXVCTypes.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Platform/Chat/QXDError.h"
#include "VelmorinVideoChat/Platform/Chat/QXDTypes.h"
#include "VelmorinVideoChat/Platform/Chat/QXDChannel.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"
