// The same in C++, where an enumeration has the type that it is given.
#include "abi_check.c"
