#!/usr/bin/env python3
"""A stand-in for an Immich server, for tests of Quillmere's Immich library.

Follows the request and response shapes of Immich's REST API as published in the typed client
@immich/sdk 3.2.2 (build/fetch-client.d.ts), for exactly the calls Quillmere makes:

  GET  /.well-known/immich             {"api": {"endpoint": "/api"}}
  GET  /api/api-keys/me                ApiKeyResponseDto
  POST /api/assets                     AssetMediaCreateDto (multipart) -> AssetMediaResponseDto
  PUT  /api/assets/{id}                UpdateAssetDto -> AssetResponseDto
  POST /api/albums                     CreateAlbumDto -> AlbumResponseDto
  GET  /api/albums/{id}                -> AlbumResponseDto
  PUT  /api/albums/{id}/assets         BulkIdsDto -> BulkIdResponseDto[]

Requests that don't match (unknown or missing fields, wrong types, text fields after a file
part, a checksum header that isn't the file's SHA-1) are answered 400 like Immich's validation.
Standard library only. Started with a folder to keep uploads in; prints its port on the first
line of stdout and serves 127.0.0.1 until killed or until its standard input closes. Tests steer it through /__standin/:

  POST /__standin/config   merge JSON into the switches below
  GET  /__standin/state    assets, albums and the request log
  POST /__standin/forget-albums   delete every album, as a user would in Immich

Switches: keys {key: [permissions]}, refusePairs, refuseTypes [extensions],
dropUploads [file names] (connection closed mid-upload), delay (seconds before answering),
quotaFull, tooLarge [file names] (413 as a proxy answers).
"""

import datetime
import email.parser
import email.policy
import hashlib
import http
import http.server
import json
import os
import re
import sys
import threading
import time
import urllib.parse
import uuid

UUID = re.compile(r"^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$")
VIDEO = {"mov", "mp4", "m4v", "3gp", "avi", "mkv", "webm", "mts", "m2ts", "mpg", "mpeg", "wmv",
         "flv", "mp"}
UPLOAD_TEXT = {"fileCreatedAt", "fileModifiedAt", "filename", "duration", "isFavorite",
               "livePhotoVideoId", "visibility", "metadata"}
UPLOAD_FILES = {"assetData", "sidecarData"}
UPDATE_ASSET = {"dateTimeOriginal": str, "description": str, "isFavorite": bool,
                "latitude": (int, float), "livePhotoVideoId": (str, type(None)),
                "longitude": (int, float), "rating": (int, type(None)), "visibility": str}
OWNER = {"id": "6f0c3f39-8d38-4a3c-9d1e-0d0c1b6a2e11", "name": "Test", "email": "t@example.org",
         "avatarColor": "primary", "profileChangedAt": "2025-01-01T00:00:00.000Z",
         "profileImagePath": ""}

lock = threading.Lock()
config = {"keys": {"test-key": ["all"]}, "refusePairs": False, "refuseTypes": [],
          "dropUploads": [], "delay": 0, "quotaFull": False, "tooLarge": []}
assets = {}   # id -> asset
albums = {}   # id -> album
requests = []  # "METHOD /path -> status"
store = sys.argv[1] if len(sys.argv) > 1 else "."


class Refusal(Exception):
    def __init__(self, status, message):
        super().__init__(message)
        self.status = status


def now():
    return datetime.datetime.now(datetime.timezone.utc).isoformat().replace("+00:00", "Z")


def is_date(text):
    try:
        datetime.datetime.fromisoformat(text.replace("Z", "+00:00"))
        return True
    except ValueError:
        return False


def extension(name):
    return name.rsplit(".", 1)[-1].lower() if "." in name else ""


def album_dto(album):
    return {"albumName": album["albumName"], "albumThumbnailAssetId": None,
            "albumUsers": [{"role": "editor", "user": OWNER}], "assetCount": len(album["assets"]),
            "createdAt": album["createdAt"], "description": album["description"],
            "hasSharedLink": False, "id": album["id"], "isActivityEnabled": True,
            "shared": False, "updatedAt": album["createdAt"]}


def asset_dto(asset):
    return {"checksum": asset["checksum"], "createdAt": asset["createdAt"], "duration": None,
            "fileCreatedAt": asset["fileCreatedAt"], "fileModifiedAt": asset["fileModifiedAt"],
            "hasMetadata": True, "height": None, "id": asset["id"], "isArchived": False,
            "isEdited": False, "isFavorite": False, "isOffline": False, "isTrashed": False,
            "localDateTime": asset["fileCreatedAt"], "originalFileName": asset["filename"],
            "originalPath": asset["path"], "ownerId": OWNER["id"], "thumbhash": None,
            "type": asset["type"], "updatedAt": asset["createdAt"],
            "visibility": asset["visibility"], "width": None,
            "livePhotoVideoId": asset["livePhotoVideoId"]}


def link(still, video_id):
    video = assets.get(video_id) if isinstance(video_id, str) else None
    if video is None:
        raise Refusal(400, "Live photo video not found")
    if config["refusePairs"] or video["type"] != "VIDEO":
        raise Refusal(400, "Live photo video must be a video")
    still["livePhotoVideoId"] = video_id
    video["visibility"] = "hidden"


def parse_multipart(handler, body):
    content_type = handler.headers.get("Content-Type", "")
    if not content_type.startswith("multipart/form-data") or "boundary=" not in content_type:
        raise Refusal(400, "Content-Type must be multipart/form-data")
    message = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(
        b"Content-Type: " + content_type.encode() + b"\r\n\r\n" + body)
    if not message.is_multipart():
        raise Refusal(400, "Malformed multipart body")
    fields, files, seen_file = {}, {}, False
    for part in message.iter_parts():
        name = part.get_param("name", header="content-disposition")
        filename = part.get_param("filename", header="content-disposition")
        data = part.get_payload(decode=True) or b""
        if name in UPLOAD_FILES and filename is not None:
            seen_file = True
            files[name] = (filename, data)
        elif name in UPLOAD_TEXT and filename is None:
            if seen_file:
                raise Refusal(400, f"Field {name} must come before the file")
            fields[name] = data.decode("utf-8")
        else:
            raise Refusal(400, f"property {name} should not exist")
    return fields, files


def upload(handler, body):
    fields, files = parse_multipart(handler, body)
    if "assetData" not in files:
        raise Refusal(400, "assetData should not be empty")
    for name in ("fileCreatedAt", "fileModifiedAt"):
        if name not in fields or not is_date(fields[name]):
            raise Refusal(400, f"{name} must be a Date instance")
    if "livePhotoVideoId" in fields and not UUID.match(fields["livePhotoVideoId"]):
        raise Refusal(400, "livePhotoVideoId must be a UUID")
    filename, data = files["assetData"]
    filename = fields.get("filename", filename)
    checksum = hashlib.sha1(data).hexdigest()
    claimed = handler.headers.get("x-immich-checksum")
    if claimed is not None and claimed.lower() != checksum:
        raise Refusal(400, "x-immich-checksum is not the file's SHA-1")
    if filename in config["tooLarge"]:
        raise Refusal(413, "<html><body>413 Request Entity Too Large</body></html>")
    if extension(filename) in config["refuseTypes"]:
        raise Refusal(400, f"Unsupported file type {filename}")
    for existing in assets.values():
        if existing["checksum"] == checksum:
            return 200, {"id": existing["id"], "status": "duplicate"}
    if config["quotaFull"]:
        raise Refusal(400, "Quota has been exceeded!")
    asset_id = str(uuid.uuid4())
    path = os.path.join(store, asset_id + "-" + os.path.basename(filename))
    asset = {"id": asset_id, "filename": filename, "checksum": checksum, "path": path,
             "type": "VIDEO" if extension(filename) in VIDEO else "IMAGE",
             "fileCreatedAt": fields["fileCreatedAt"], "fileModifiedAt": fields["fileModifiedAt"],
             "createdAt": now(), "livePhotoVideoId": None, "visibility": "timeline",
             "sidecarPath": None}
    if "livePhotoVideoId" in fields:
        link(asset, fields["livePhotoVideoId"])  # refused: the still is not created
    with open(path, "wb") as out:
        out.write(data)
    if "sidecarData" in files:
        asset["sidecarPath"] = path + ".xmp"
        with open(asset["sidecarPath"], "wb") as out:
            out.write(files["sidecarData"][1])
    assets[asset_id] = asset
    return 201, {"id": asset_id, "status": "created"}


def json_body(body, fields, required=()):
    try:
        value = json.loads(body)
    except ValueError:
        raise Refusal(400, "Body must be JSON")
    if not isinstance(value, dict):
        raise Refusal(400, "Body must be an object")
    for key in value:
        if key not in fields:
            raise Refusal(400, f"property {key} should not exist")
        wrong_bool = fields[key] is not bool and isinstance(value[key], bool)
        if not isinstance(value[key], fields[key]) or wrong_bool:
            raise Refusal(400, f"{key} has the wrong type")
    for key in required:
        if key not in value:
            raise Refusal(400, f"{key} should not be empty")
    return value


def route(handler, method, path, body):
    if method == "GET" and path == "/api/api-keys/me":
        return 200, {"createdAt": "2025-01-01T00:00:00.000Z", "id": str(uuid.uuid4()),
                     "name": "quillmere", "permissions": handler.permissions,
                     "updatedAt": "2025-01-01T00:00:00.000Z"}
    if method == "POST" and path == "/api/assets":
        handler.need("asset.upload")
        return upload(handler, body)
    match = re.fullmatch(r"/api/assets/([^/]+)", path)
    if method == "PUT" and match:
        handler.need("asset.update")
        value = json_body(body, UPDATE_ASSET)
        asset = assets.get(match[1])
        if asset is None:
            raise Refusal(400, "Not found or no asset.update access")
        if value.get("livePhotoVideoId"):
            link(asset, value["livePhotoVideoId"])
        return 200, asset_dto(asset)
    if method == "POST" and path == "/api/albums":
        handler.need("album.create")
        value = json_body(body, {"albumName": str, "description": (str, type(None)),
                                 "albumUsers": list, "assetIds": list}, ["albumName"])
        album = {"id": str(uuid.uuid4()), "albumName": value["albumName"],
                 "description": value.get("description") or "", "assets": [],
                 "createdAt": now()}
        albums[album["id"]] = album
        return 201, album_dto(album)
    match = re.fullmatch(r"/api/albums/([^/]+)(/assets)?", path)
    if match:
        if not UUID.match(match[1]):
            raise Refusal(400, "id must be a UUID")
        album = albums.get(match[1])
        if method == "GET" and not match[2]:
            handler.need("album.read")
            if album is None:
                raise Refusal(400, "Not found or no album.read access")
            return 200, album_dto(album)
        if method == "PUT" and match[2]:
            handler.need("albumAsset.create")
            value = json_body(body, {"ids": list}, ["ids"])
            if not all(isinstance(i, str) and UUID.match(i) for i in value["ids"]):
                raise Refusal(400, "each value in ids must be a UUID")
            if album is None:
                raise Refusal(400, "Not found or no albumAsset.create access")
            results = []
            for asset_id in value["ids"]:
                if asset_id in album["assets"]:
                    results.append({"id": asset_id, "success": False, "error": "duplicate"})
                elif asset_id not in assets:
                    results.append({"id": asset_id, "success": False, "error": "not_found"})
                else:
                    album["assets"].append(asset_id)
                    results.append({"id": asset_id, "success": True})
            return 200, results
    raise Refusal(404, f"Cannot {method} {path}")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    # Headers and body go out in separate writes; without this, Nagle's algorithm holds the
    # body until the client's delayed acknowledgement, 40 ms a request on loopback.
    disable_nagle_algorithm = True

    def log_message(self, *args):
        pass

    def need(self, permission):
        if "all" not in self.permissions and permission not in self.permissions:
            raise Refusal(403, f"Missing required permission: {permission}")

    def answer(self, status, value):
        text = isinstance(value, str)
        data = value.encode() if text else json.dumps(value).encode()
        self.send_response(status)
        self.send_header("Content-Type", "text/html" if text else "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def handle_any(self, method):
        path, _, query = self.path.partition("?")
        length = int(self.headers.get("Content-Length", "0") or "0")
        head = self.rfile.read(min(length, 4096)) if length else b""
        if method == "POST" and path == "/api/assets":
            names = {n.decode(errors="replace") for n in re.findall(rb'filename="([^"]*)"', head)}
            if names & set(config["dropUploads"]):
                self.close_connection = True
                self.connection.shutdown(2)  # mid-upload: the rest of the body is never read
                return
        body = head + self.rfile.read(length - len(head)) if length > len(head) else head
        with lock:
            time.sleep(config["delay"])
            try:
                status, value = self.dispatch(method, path, query, body)
            except Refusal as refusal:
                status = refusal.status
                value = (str(refusal) if status == 413 else
                         {"message": str(refusal), "statusCode": status,
                          "error": http.HTTPStatus(status).phrase})
            if not path.startswith("/__standin/"):
                requests.append(f"{method} {path} -> {status}")
        try:
            self.answer(status, value)
        except OSError:
            self.close_connection = True  # the client gave up waiting

    def dispatch(self, method, path, query, body):
        if path.startswith("/__standin/"):
            if path == "/__standin/config":
                config.update(json.loads(body))
                return 200, config
            if path == "/__standin/forget-albums":
                albums.clear()
                return 200, {}
            return 200, {"assets": assets, "albums": albums, "requests": requests}
        if path == "/.well-known/immich":
            return 200, {"api": {"endpoint": "/api"}}
        # Only the shared-link parameters exist on these calls; anything else fails validation.
        for name in urllib.parse.parse_qs(query, keep_blank_values=True):
            if name not in ("key", "slug") or method == "PUT" or path.endswith("/me"):
                raise Refusal(400, f"property {name} should not exist")
        self.permissions = config["keys"].get(self.headers.get("x-api-key"))
        if self.permissions is None:
            raise Refusal(401, "Invalid API key")
        return route(self, method, path, body)

    def do_GET(self):
        self.handle_any("GET")

    def do_POST(self):
        self.handle_any("POST")

    def do_PUT(self):
        self.handle_any("PUT")


def exit_with_parent():
    sys.stdin.buffer.read()  # the test holds the other end; it closes when the test ends
    os._exit(0)


threading.Thread(target=exit_with_parent, daemon=True).start()
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
server.serve_forever()
