// Where this stands in for the system's header, there is one kind of system.
#pragma once
#define TARGET_OS_IPHONE 1
#define TARGET_OS_MAC 1
