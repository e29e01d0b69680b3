/* A module that exports "_init", as modules without the C library's start files may. */
void _init(void);

void _init(void) {}
