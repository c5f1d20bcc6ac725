autocmd BufRead,BufNewFile *.qz setfiletype qz
