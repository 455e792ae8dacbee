/* Sorts names as a Chinese reader expects them, and cuts one to a column of 7 bytes. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vel_infra/vel_infra.h>

#define COUNT 6

typedef struct Name {
    CodText text;
    CodUint32 keySize;
    CodChar key[64];
} Name;

static int compareNames(const void *left, const void *right) {
    const Name *a = left, *b = right;
    const int order = memcmp(a->key, b->key, a->keySize < b->keySize ? a->keySize : b->keySize);
    return order != 0 ? order : (a->keySize > b->keySize) - (a->keySize < b->keySize);
}

static CodResult sortNames(const CodCollation *collation, Name *names) {
    for (int i = 0; i < COUNT; i++) {
        CodText key = {names[i].key, 0, 0};
        COD_TRY(collation->nlsSort(&names[i].text, &key, sizeof(names[i].key)));
        names[i].keySize = key.len;
    }
    qsort(names, COUNT, sizeof(names[0]), compareNames);
    return COD_SUCCESS;
}

int main(void) {
    static const char *const cities[COUNT] = {"重庆", "上海", "Zürich", "北京", "zurich", "成都"};
    const CodInfraConfig config = {.flags = COD_INFRA_CODEPAGES};
    const CodCollation *collation = codGetCollation(UTF8, CHINESE_PINYIN, CASE_SENS);
    Name names[COUNT] = {0};
    for (int i = 0; i < COUNT; i++)
        names[i].text = (CodText){(CodChar *)cities[i], (CodUint32)strlen(cities[i]), 0};
    if (codInfraStart(&config) != COD_SUCCESS || sortNames(collation, names) != COD_SUCCESS) {
        puts(codGetErrorMsg2());
        return 1;
    }
    for (int i = 0; i < COUNT; i++)
        printf("%.*s ", (int)names[i].text.len, names[i].text.str);
    const CodText longName = {"上海市北京路", 18, 0};
    printf("\n%.*s\n", (int)collation->charBoundary(&longName, 7), longName.str);
    codInfraStop();
    return 0;
}
