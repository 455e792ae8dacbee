/* Builds an order as a document, reads it back by key and by path, and prints it as JSON. */
#include <stdio.h>
#include <string.h>
#include <vel_infra/vel_infra.h>

static CodText text(const char *bytes) {
    return (CodText){(CodChar *)bytes, (CodUint32)strlen(bytes), 0};
}

static CodResult pushLine(VelonArrayBuilder *lines, const char *item, const char *price) {
    const CodText keys[] = {text("item"), text("price")}, itemText = text(item);
    VelonObjectBuilder line;
    CodNumber number;
    Velon view;
    COD_TRY(codNumberFromStr(price, &number));
    COD_TRY(velonArrayBuilderPushObject(lines, 2, false, &line));
    COD_TRY(velonObjectBuilderPushString(&line, &keys[0], &itemText));
    COD_TRY(velonObjectBuilderPushNumber(&line, &keys[1], &number));
    return velonObjectBuilderFinish(&line, &view);
}

static CodResult buildOrder(VelonObjectBuilder *order, Velon *document) {
    const CodText keys[] = {text("id"), text("isPaid"), text("lines")};
    VelonArrayBuilder lines;
    Velon view;
    COD_TRY(velonObjectBuilderCreate(codMemGetSystemAlloc(), 3, false, 0, order));
    COD_TRY(velonObjectBuilderPushBigint(order, &keys[0], 4711));
    COD_TRY(velonObjectBuilderPushBool(order, &keys[1], true));
    COD_TRY(velonObjectBuilderPushArray(order, &keys[2], 2, &lines)); /* the order waits until the lines are finished */
    COD_TRY(pushLine(&lines, "apples", "0.35"));
    COD_TRY(pushLine(&lines, "flour", "1.89"));
    COD_TRY(velonArrayBuilderFinish(&lines, &view));
    return velonObjectBuilderFinish(order, document);
}

static CodResult printOrder(const Velon *document) {
    const CodText id = text("id"), path = text("$.lines[last].item");
    VelonObject order;
    VelonLazyValue found;
    CodInt64 number;
    CodBool isThere;
    CodText item, json;
    COD_TRY(velonGetObject(document, &order));
    COD_TRY(velonObjectGetBigint(&order, &id, &isThere, &number));
    COD_TRY(velonGetPath(document, &path, &found));
    COD_TRY(velonLazyGetString(&found, &item));
    COD_TRY(velonToJson(codMemGetSystemAlloc(), document, VELON_JSON_COMPACT, &json));
    printf("order %lld, last %.*s\n%.*s\n", (long long)number, (int)item.len, item.str, (int)json.len, json.str);
    codSysFree(json.str);
    return COD_SUCCESS;
}

int main(void) {
    VelonObjectBuilder order;
    Velon document = {0};
    if (buildOrder(&order, &document) != COD_SUCCESS || printOrder(&document) != COD_SUCCESS) puts(codGetErrorMsg2());
    velonObjectBuilderFree(&order);
    velonFree(&document);
    return 0;
}
