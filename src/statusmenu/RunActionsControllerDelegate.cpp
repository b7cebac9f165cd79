#include "statusmenu/RunActionsControllerDelegate.h"

RunActionsControllerDelegate::~RunActionsControllerDelegate() = default;
