#include "statusmenu/StatusMenuHost.h"

StatusMenuHost::~StatusMenuHost() = default;
