#include "statusmenu/ScheduleControl.h"

ScheduleControl::~ScheduleControl() = default;
