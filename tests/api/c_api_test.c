/* Compiles the public header as C. */
#include "k5x.h"

int main(void) { return 0; }
