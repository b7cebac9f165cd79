#include "statuswindow/StatusWindowHost.h"

StatusWindowHost::~StatusWindowHost() = default;
