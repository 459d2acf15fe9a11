[playlist]
File1=rtsp://127.0.0.1/live
File2=HTTP://127.0.0.1:8000/second
