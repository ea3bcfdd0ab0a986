/* Adds one contact to the practice in the folder given, and prints its identifier. */
#include <brenikdb.h>
#include <stdio.h>

int main(int argc, char** argv) {
    char identifier[8] = "";
    int table = 0;
    BrenikCode code;
    if (argc != 3) return 100;
    code = BrenikInitialize(argv[1], 0, 0);
    if (code == BRENIK_SUCCESS) code = BrenikAddStart(1, &table);
    if (code == BRENIK_SUCCESS) code = BrenikSetField(1, 0, "LAST", argv[2]);
    if (code == BRENIK_SUCCESS) code = BrenikAddEnd(1, identifier);
    if (code == BRENIK_SUCCESS) puts(identifier);
    BrenikShutDown();
    return (int)code;
}
