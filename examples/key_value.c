/* Stores a value under a key and reads it back. */
#include <stdio.h>

#include "zel_common_storage.h"

int main(void)
{
    char *value = NULL;
    if (_common_storage_init() != ZEL_ERR_NONE ||
        _common_storage_upsert_unique_data("greeting", "Hello", NULL, NULL, NULL) != ZEL_ERR_NONE ||
        _common_storage_get_unique_data("greeting", &value, NULL, NULL, NULL) != ZEL_ERR_NONE)
        return 1; /* the trace on standard error has the reason */
    printf("%s\n", value);
    g_free(value);
    return 0;
}
