/* A module that does not export "_init". */
int ModuleWithoutInit(void);

int ModuleWithoutInit(void)
{
    return 1;
}
