#pragma once

#include <QByteArray>

// The texts that every prepared drive holds, byte for byte.

inline const QByteArray expectedWindowsLauncher("@echo off\r\n"
                                                "setlocal\r\n"
                                                "cd /d \"%~dp0Tessarine\\windows\"\r\n"
                                                "start \"Tessarine\" \"Tessarine.exe\"\r\n");

inline const QByteArray expectedLinuxLauncher(
    "#!/bin/sh\n"
    "SCRIPT_DIR=\"$(CDPATH= cd -- \"$(dirname -- \"$0\")\" && pwd)\"\n"
    "APP_DIR=\"$SCRIPT_DIR/Tessarine/linux\"\n"
    "APP_BIN=\"$APP_DIR/Tessarine\"\n"
    "\n"
    "show_error() {\n"
    "    if command -v zenity >/dev/null 2>&1; then\n"
    "        zenity --error --title=\"Tessarine\" --text=\"$1\"\n"
    "    elif command -v xmessage >/dev/null 2>&1; then\n"
    "        xmessage -center \"Tessarine: $1\"\n"
    "    else\n"
    "        printf 'Tessarine: %s\\n' \"$1\" >&2\n"
    "    fi\n"
    "}\n"
    "\n"
    "if [ ! -f \"$APP_BIN\" ]; then\n"
    "    show_error \"Executavel Linux nao encontrado em: $APP_BIN\"\n"
    "    exit 1\n"
    "fi\n"
    "\n"
    "if [ ! -x \"$APP_BIN\" ]; then\n"
    "    chmod +x \"$APP_BIN\" 2>/dev/null || true\n"
    "fi\n"
    "\n"
    "export LD_LIBRARY_PATH=\"$APP_DIR/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}\"\n"
    "export QT_PLUGIN_PATH=\"$APP_DIR/plugins${QT_PLUGIN_PATH:+:$QT_PLUGIN_PATH}\"\n"
    "cd \"$APP_DIR\" || exit 1\n"
    "\"$APP_BIN\" \"$@\"\n"
    "status=$?\n"
    "if [ \"$status\" -ne 0 ]; then\n"
    "    show_error \"Nao foi possivel iniciar o Tessarine. Codigo de saida: $status\"\n"
    "fi\n"
    "exit \"$status\"\n");

inline const QByteArray expectedReadme(
    "Tessarine portable bundle\n"
    "\n"
    "Raiz do pendrive:\n"
    "- tessarine.tsrn: container criptografado\n"
    "- Tessarine-Windows.bat: inicializador Windows\n"
    "- Tessarine-Linux.sh: inicializador Linux\n"
    "\n"
    "A pasta Tessarine/windows contem o executavel Windows quando um bundle Windows esta "
    "disponivel.\n"
    "A pasta Tessarine/linux contem o executavel Linux e dependencias copiadas deste ambiente.\n"
    "Dependencias Qt e bibliotecas runtime sao copiadas durante a preparacao quando "
    "disponiveis.\n");
