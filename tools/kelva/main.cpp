#include "kelva/kelva.h"
int main() { return 0; }
