#include "platform/WorkspacePlacement.h"

WorkspacePlacement::~WorkspacePlacement() = default;
