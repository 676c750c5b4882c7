# Lists the devices of the first gateway that announces itself.
import asyncio
from engr_lan import Gateway
async def main():
    async with Gateway.find() as gateway:
        print(*await gateway.devices(), sep="\n")
asyncio.run(main())
