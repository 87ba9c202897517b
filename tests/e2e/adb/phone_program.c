/* A static program to push to a simulated phone: it prints each file it is given, or says why it
 * cannot as argv[0], and makes a file for each argument "+PATH" first. Exit status 1 after a
 * failure, else 0. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv) {
    int status = 0;
    setvbuf(stdout, NULL, _IONBF, 0); /* in order with what goes to stderr */
    for (int i = 1; i < argc; ++i) {
        const char *path = argv[i][0] == '+' ? argv[i] + 1 : argv[i];
        FILE *file = fopen(path, argv[i][0] == '+' ? "w" : "r");
        if (file == NULL) {
            fprintf(stderr, "%s: %s: %s\n", argv[0], path, strerror(errno));
            status = 1;
            continue;
        }
        if (argv[i][0] == '+') fputs("made\n", file);
        for (int c; argv[i][0] != '+' && (c = fgetc(file)) != EOF;) putchar(c);
        fclose(file);
    }
    return status;
}
