#include "tracking/CaptureHistory.h"

CaptureHistory::~CaptureHistory() = default;
