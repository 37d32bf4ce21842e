// The same in C++, where the declaration names the type.
#include "abi_check.c"
