// Resource ids and texts of the program, shared by the resource script and the host build's string table.
#pragma once

#define IDS_APP_TITLE 103
#define IDC_HALVERN 109
#define IDM_EXIT 105

#define HALVERN_TEXT_APP_TITLE L"Halvern"
#define HALVERN_TEXT_WINDOW_CLASS L"HALVERN"
