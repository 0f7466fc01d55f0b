/* What there is no cheaper way than: libpng's rows, one after the other, and nothing done with them. */
#include <png.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    FILE* file = argc > 1 ? fopen(argv[1], "rb") : NULL;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    png_infop info = png != NULL ? png_create_info_struct(png) : NULL;
    png_bytep row;
    png_uint_32 left;
    if (file == NULL || info == NULL)
        return 1;
    png_init_io(png, file);
    png_read_info(png, info);
    row = malloc(png_get_rowbytes(png, info));
    for (left = png_get_image_height(png, info); row != NULL && left > 0; --left)
        png_read_row(png, row, NULL);
    png_read_end(png, NULL);
    return row == NULL;
}
