[playlist]
NumberOfEntries=2
File1=http://127.0.0.1:8000/stream.mp3
Title1=Radio X (MP3)
Length1=-1
File2=https://127.0.0.1:8443/stream.aac
Title2=Radio X (AAC)
Length2=-1
Version=2
