#pragma once

/// Sets up how pages look and are drawn and the language of their texts: once, with the QGuiApplication there
/// and before the first page.
void setUpGui();
