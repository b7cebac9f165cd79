#include "tracking/UserNotifier.h"

UserNotifier::~UserNotifier() = default;
