// The host build's string table: the same texts the resource script gives Halvern.exe.
#include "app/resource.h"
#include "platform/Resources.h"

const platform::StringResource g_hostStringResources[] = {
    {IDS_APP_TITLE, HALVERN_TEXT_APP_TITLE},
    {IDC_HALVERN, HALVERN_TEXT_WINDOW_CLASS},
    {0, nullptr},
};
