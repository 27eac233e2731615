#include "BuiltInToolDownloads.h"

namespace BuiltInToolDownloads {

// clang-format off
static const char table[] = R"json(
{
  "linux-x86_64": [
    {
      "tool": "ffmpeg",
      "version": "8.1.2",
      "host": "github",
      "path": "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffmpeg-linux-x64",
      "form": "executable",
      "sha256": ""
    },
    {
      "tool": "ffprobe",
      "version": "8.1.2",
      "host": "github",
      "path": "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffprobe-linux-x64",
      "form": "executable",
      "sha256": ""
    },
    {
      "tool": "fpcalc",
      "version": "1.6.1",
      "host": "github",
      "path": "/acoustid/chromaprint/releases/download/v1.6.1/chromaprint-fpcalc-1.6.1-linux-x86_64.tar.gz",
      "form": "tar.gz",
      "sha256": ""
    },
    {
      "tool": "qjs",
      "version": "0.16.2",
      "host": "github",
      "path": "/quickjs-ng/quickjs/releases/download/v0.16.2/qjs-linux-x86_64",
      "form": "executable",
      "sha256": ""
    },
    {
      "tool": "uv",
      "host": "github",
      "path": "/astral-sh/uv/releases/latest/download/uv-x86_64-unknown-linux-gnu.tar.gz",
      "versionedPath": "/astral-sh/uv/releases/download/{version}/uv-x86_64-unknown-linux-gnu.tar.gz",
      "form": "tar.gz"
    }
  ],
  "macos-arm64": [
    {
      "tool": "ffmpeg",
      "version": "8.1.2",
      "host": "github",
      "path": "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffmpeg-osx-arm64",
      "form": "executable",
      "sha256": "e7b9fcd97f95f333512d6e8b8ac24d9dbc08f189f36047695499bd7b57214b22"
    },
    {
      "tool": "ffprobe",
      "version": "8.1.2",
      "host": "github",
      "path": "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffprobe-osx-arm64",
      "form": "executable",
      "sha256": "ded4c698b8ff38d0bc1fd30fcc5e768dc46f58bc15a8dfd61f98615ba49cde5c"
    },
    {
      "tool": "ffmpegFallback",
      "version": "8.1.1",
      "host": "ffmpegFallback",
      "path": "/ffmpeg/ffmpeg-8.1.1.zip",
      "form": "zip",
      "sha256": "4610988e2f54c243c50da73a09e4e2c36d9bb77546f9aa6c84cb328dcb1a98c1"
    },
    {
      "tool": "ffprobeFallback",
      "version": "8.1.1",
      "host": "ffmpegFallback",
      "path": "/ffmpeg/ffprobe-8.1.1.zip",
      "form": "zip",
      "sha256": "aeade29dee3c3844e9bcc974f4ae4b29cc4f87994177d77003a8589fa531009e"
    },
    {
      "tool": "fpcalc",
      "version": "1.6.1",
      "host": "github",
      "path": "/acoustid/chromaprint/releases/download/v1.6.1/chromaprint-fpcalc-1.6.1-macos-universal.tar.gz",
      "form": "tar.gz",
      "sha256": "240aeb5a8c8205af458e3625cb7487b826b711a999e491ef00111f3cebd76f00"
    },
    {
      "tool": "qjs",
      "version": "0.16.2",
      "host": "github",
      "path": "/quickjs-ng/quickjs/releases/download/v0.16.2/qjs-darwin-arm64",
      "form": "executable",
      "sha256": "f6200e9856c45578a5d42ac873a32f3f994b421e29df9f63b452d9c7145015fc"
    },
    {
      "tool": "uv",
      "host": "github",
      "path": "/astral-sh/uv/releases/latest/download/uv-aarch64-apple-darwin.tar.gz",
      "versionedPath": "/astral-sh/uv/releases/download/{version}/uv-aarch64-apple-darwin.tar.gz",
      "form": "tar.gz"
    }
  ]
}
)json";
// clang-format on

QByteArray json() {
    return QByteArray(table);
}

} // namespace BuiltInToolDownloads
