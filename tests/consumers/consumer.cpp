// The same program in C++, where the headers read otherwise.
#include "consumer.c"
