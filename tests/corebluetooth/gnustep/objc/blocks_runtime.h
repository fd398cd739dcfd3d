#include <Block.h>  // Where GNUstep looks for what another runtime brings by itself.
