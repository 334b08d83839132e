/* Stands in for Tessarine.exe: notes, in its working directory, which one that is, and ends. */
#include <stdio.h>
#include <windows.h>

int main(void)
{
    wchar_t directory[MAX_PATH];
    char text[4 * MAX_PATH];
    FILE *file;
    if (!GetCurrentDirectoryW(MAX_PATH, directory))
        return 1;
    if (!WideCharToMultiByte(CP_UTF8, 0, directory, -1, text, sizeof text, NULL, NULL))
        return 1;
    file = fopen("started-in.txt", "w");
    if (!file)
        return 1;
    fputs(text, file);
    return fclose(file) ? 1 : 0;
}
