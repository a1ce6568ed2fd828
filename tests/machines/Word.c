/* Word.c - says something, so that a machine that runs nothing and yet answers 0 is found out. */
#include <stdio.h>

int main(void) {
    printf("this machine has %d-bit pointers\n", (int)(8 * sizeof(void *)));
    return 0;
}
